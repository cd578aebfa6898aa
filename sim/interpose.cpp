// The C library functions that the simulated host answers for: opening, closing, ioctl, uname.
// Each asks the host first and passes everything else on to the next definition.
//
// Compiled without 64-bit file offsets and fortification, whose headers would rename or
// define these functions.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "sim/host.h"
#include "sim/interpose.h"
#include "sim/platform.h"

namespace {

using sim::platform::next;

using OpenFunction = int(const char *, int, ...);
using OpenAtFunction = int(int, const char *, int, ...);

int open_by(OpenFunction *real, const char *path, int flags, mode_t mode) {
  if (const auto simulated = sim::Host::instance().open(path, flags)) return *simulated;
  return real(path, flags, mode);
}

int open_at_by(OpenAtFunction *real, int directory, const char *path, int flags, mode_t mode) {
  const std::string name = sim::name_at(directory, path);
  if (const auto simulated = sim::Host::instance().open(name, flags)) return *simulated;
  return real(directory, path, flags, mode);
}

mode_t mode_of(int flags, std::va_list arguments) {
  return __OPEN_NEEDS_MODE(flags) ? va_arg(arguments, mode_t) : 0;
}

std::FILE *open_file_by(std::FILE *(*real)(const char *, const char *), const char *path,
                        const char *mode) {
  const auto fd = sim::Host::instance().open_file(path);
  if (!fd) return real(path, mode);
  if (*fd < 0) return nullptr;
  std::FILE *file = fdopen(*fd, "r");
  if (file == nullptr) sim::platform::close(*fd);
  return file;
}

}  // namespace

std::string sim::name_at(int directory, const char *path) {
  if (path[0] == '/' || directory == AT_FDCWD) return path;
  const auto name = Host::instance().name_of(directory);
  return name ? *name + "/" + path : path;
}

extern "C" {

int open(const char *path, int flags, ...) {
  static auto *real = next<OpenFunction>("open");
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_by(real, path, flags, mode);
}

int open64(const char *path, int flags, ...) {
  static auto *real = next<OpenFunction>("open64");
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_by(real, path, flags, mode);
}

int openat(int directory, const char *path, int flags, ...) {
  static auto *real = next<OpenAtFunction>("openat");
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_at_by(real, directory, path, flags, mode);
}

int openat64(int directory, const char *path, int flags, ...) {
  static auto *real = next<OpenAtFunction>("openat64");
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_at_by(real, directory, path, flags, mode);
}

// What a fortified caller's functions become.
int __open_2(const char *path, int flags) { return open(path, flags); }

int __open64_2(const char *path, int flags) { return open64(path, flags); }

int __openat_2(int directory, const char *path, int flags) {
  return openat(directory, path, flags);
}

int __openat64_2(int directory, const char *path, int flags) {
  return openat64(directory, path, flags);
}

int close(int fd) {
  sim::Host::instance().closed(fd);
  return sim::platform::close(fd);
}

int ioctl(int fd, unsigned long request, ...) noexcept {
  static auto *real = next<int(int, unsigned long, void *)>("ioctl");
  std::va_list arguments;
  va_start(arguments, request);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  if (const auto simulated = sim::Host::instance().ioctl(fd, request, argument)) return *simulated;
  return real(fd, request, argument);
}

int uname(utsname *out) noexcept {
  static auto *real = next<int(utsname *)>("uname");
  sim::Host &host = sim::Host::instance();
  if (!host.knows_machine()) return real(out);
  const auto machine = host.machine();
  if (!machine) {
    errno = EFAULT;
    return -1;
  }
  *out = {};
  std::strncpy(out->sysname, "Linux", sizeof out->sysname - 1);
  std::strncpy(out->machine, machine->c_str(), sizeof out->machine - 1);
  return 0;
}

FILE *fopen(const char *path, const char *mode) {
  static auto *real = next<FILE *(const char *, const char *)>("fopen");
  return open_file_by(real, path, mode);
}

FILE *fopen64(const char *path, const char *mode) {
  static auto *real = next<FILE *(const char *, const char *)>("fopen64");
  return open_file_by(real, path, mode);
}

}  // extern "C"
