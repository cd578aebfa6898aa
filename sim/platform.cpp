#include "sim/platform.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

namespace sim::platform {

int open(const char *name, int flags, mode_t mode) {
  static auto *real = next<int(const char *, int, ...)>("open");
  return real(name, flags, mode);
}

int close(int fd) {
  static auto *real = next<int(int)>("close");
  return real(fd);
}

int file_with(const std::string &text) {
  const int fd = memfd_create("simulated", MFD_CLOEXEC);
  if (fd < 0) return fd;
  const ssize_t size = static_cast<ssize_t>(text.size());
  if (write(fd, text.data(), text.size()) == size && lseek(fd, 0, SEEK_SET) == 0) return fd;
  close(fd);
  errno = ENOMEM;
  return -1;
}

}  // namespace sim::platform
