// Performs a caller's command on its device, and lays out what goes back to the caller.
#pragma once

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "control/call.h"

namespace control {

/// A command, with its own copy of the bytes that the caller sent.
class Job {
 public:
  Job(const Command &command, std::span<const std::byte> bytes);
  Job(const Job &) = delete;
  Job &operator=(const Job &) = delete;

  /// Opens the device, sends the command and waits for its end. Call it once.
  void perform();

  /// What the caller's ioctl returns: 0, a positive status, or a negated errno.
  int result() const { return result_; }
  /// What fills the caller's ranges, in their order. Empty when the request failed with an errno.
  std::span<const iovec> reply() const { return {reply_.data(), reply_count_}; }

 private:
  template <class Pointer>
  void perform_sg_io(int device);
  void perform_legacy(int device);
  void answer(void *bytes, std::size_t length) {
    if (length != 0) reply_[reply_count_++] = {bytes, length};
  }

  Command command_;
  std::vector<std::byte> bytes_;
  std::array<std::byte, 255> sense_{};
  int result_ = 0;
  std::array<iovec, 3> reply_{};
  std::size_t reply_count_ = 0;
};

}  // namespace control
