// Blocks between a disk and a file or pipe: what the subcommands read and write share.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/block_io.h"
#include "tools/view.h"

namespace tool {

/// Which blocks of which disk, and the file that they go into or come out of.
struct TransferOptions {
  std::string node;
  std::optional<std::uint64_t> lba;
  std::optional<std::uint64_t> count;
  std::string file = "-";
};

/// How far a transfer has come: shown on a terminal once it takes long, and counted for messages.
class Progress {
 public:
  Progress(const BlockDevice &disk, std::string operation, std::uint64_t lba,
           std::optional<std::uint64_t> total);
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;
  ~Progress();

  std::uint64_t done() const { return done_; }
  /// The next block.
  std::uint64_t next() const { return lba_ + done_; }
  void add(std::size_t blocks);

  /// Throws Error that says where the transfer stopped, and why.
  [[noreturn]] void stop(std::string_view reason) const;

  /// What was done, when all was.
  View view(const std::string &verb) const;

 private:
  using Clock = std::chrono::steady_clock;

  const BlockDevice &disk_;
  const std::string operation_;
  const std::uint64_t lba_;
  const std::optional<std::uint64_t> total_;
  std::uint64_t done_ = 0;
  const bool on_terminal_;
  Clock::time_point next_line_;
  bool has_line_ = false;
};

}  // namespace tool
