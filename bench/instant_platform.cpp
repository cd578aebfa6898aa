// The C library's calls that commands are made of. For other files they are what they were.
#include "bench/instant_platform.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include "base/driver.h"

namespace {

constexpr int instant_descriptor = 1 << 24;

/// The way into the kernel and back, with nothing done there.
int instant_call(int result) {
  syscall(SYS_getppid);
  return result;
}

bool is_instant(const char *name) {
  return std::strcmp(name, bench::instant_node) == 0 || std::strcmp(name, kzddl::control_node) == 0;
}

}  // namespace

extern "C" {

int open(const char *name, int flags, ...) {
  if (is_instant(name)) return instant_call(instant_descriptor);
  std::va_list rest;
  va_start(rest, flags);
  const int mode = va_arg(rest, int);
  va_end(rest);
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, name, flags, mode));
}

int open64(const char *name, int flags, ...) __attribute__((alias("open")));

int ioctl(int descriptor, unsigned long request, ...) noexcept {
  if (descriptor == instant_descriptor) return instant_call(0);
  std::va_list rest;
  va_start(rest, request);
  void *argument = va_arg(rest, void *);
  va_end(rest);
  return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

int close(int descriptor) {
  if (descriptor == instant_descriptor) return instant_call(0);
  return static_cast<int>(syscall(SYS_close, descriptor));
}

}  // extern "C"
