// A file descriptor that closes itself and leaves errno as it was: the reason of a
// failed request outlives the clean-up after it.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace kzddl {

class Descriptor {
 public:
  Descriptor() = default;
  /// Takes over an open descriptor; a negative number is none.
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;

  ~Descriptor() {
    if (fd_ < 0) return;
    const int saved = errno;
    ::close(fd_);
    errno = saved;
  }

  /// Opens `node`; only for a descriptor that holds nothing. False, with errno, on failure.
  bool open(const char *node, int flags) {
    fd_ = ::open(node, flags, 0);  // without a mode, fortified builds call another function
    return fd_ >= 0;
  }

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }

 private:
  int fd_ = -1;
};

}  // namespace kzddl
