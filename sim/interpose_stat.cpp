// The C library functions that look names up, as interpose.cpp has those that open them.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "sim/host.h"
#include "sim/interpose.h"
#include "sim/platform.h"

namespace {

using sim::Host;
using sim::Status;
using sim::platform::next;

template <class Stat>
void fill(const Status &status, Stat *out) {
  *out = {};
  out->st_mode = status.mode;
  out->st_rdev = status.number;
  out->st_size = static_cast<decltype(out->st_size)>(status.size);
  out->st_ino = static_cast<decltype(out->st_ino)>(status.inode);
  out->st_nlink = 1;
}

template <class Stat>
std::optional<int> simulated_stat(const std::string &name, bool follow, Stat *out) {
  Status status;
  const auto simulated = Host::instance().stat(name, follow, status);
  if (simulated == 0) fill(status, out);
  return simulated;
}

template <class Stat>
std::optional<int> simulated_stat(int fd, Stat *out) {
  Status status;
  const auto simulated = Host::instance().stat(fd, status);
  if (simulated == 0) fill(status, out);
  return simulated;
}

template <class Stat>
std::optional<int> simulated_stat_at(int directory, const char *path, Stat *out, int flags) {
  if (path[0] == '\0' && (flags & AT_EMPTY_PATH) != 0) return simulated_stat(directory, out);
  return simulated_stat(sim::name_at(directory, path), (flags & AT_SYMLINK_NOFOLLOW) == 0, out);
}

std::optional<int> simulated_access(const std::string &name) {
  Status status;
  return Host::instance().stat(name, true, status);
}

std::optional<ssize_t> simulated_read_link(const std::string &name, char *out, std::size_t size) {
  std::string target;
  const auto simulated = Host::instance().read_link(name, target);
  if (!simulated || *simulated < 0) return simulated;
  return static_cast<ssize_t>(target.copy(out, size));
}

}  // namespace

extern "C" {

int stat(const char *path, struct stat *out) noexcept {
  static auto *real = next<int(const char *, struct stat *)>("stat");
  const auto simulated = simulated_stat(path, true, out);
  return simulated ? *simulated : real(path, out);
}

int stat64(const char *path, struct stat64 *out) noexcept {
  static auto *real = next<int(const char *, struct stat64 *)>("stat64");
  const auto simulated = simulated_stat(path, true, out);
  return simulated ? *simulated : real(path, out);
}

int lstat(const char *path, struct stat *out) noexcept {
  static auto *real = next<int(const char *, struct stat *)>("lstat");
  const auto simulated = simulated_stat(path, false, out);
  return simulated ? *simulated : real(path, out);
}

int lstat64(const char *path, struct stat64 *out) noexcept {
  static auto *real = next<int(const char *, struct stat64 *)>("lstat64");
  const auto simulated = simulated_stat(path, false, out);
  return simulated ? *simulated : real(path, out);
}

int fstat(int fd, struct stat *out) noexcept {
  static auto *real = next<int(int, struct stat *)>("fstat");
  const auto simulated = simulated_stat(fd, out);
  return simulated ? *simulated : real(fd, out);
}

int fstat64(int fd, struct stat64 *out) noexcept {
  static auto *real = next<int(int, struct stat64 *)>("fstat64");
  const auto simulated = simulated_stat(fd, out);
  return simulated ? *simulated : real(fd, out);
}

int fstatat(int directory, const char *path, struct stat *out, int flags) noexcept {
  static auto *real = next<int(int, const char *, struct stat *, int)>("fstatat");
  const auto simulated = simulated_stat_at(directory, path, out, flags);
  return simulated ? *simulated : real(directory, path, out, flags);
}

int fstatat64(int directory, const char *path, struct stat64 *out, int flags) noexcept {
  static auto *real = next<int(int, const char *, struct stat64 *, int)>("fstatat64");
  const auto simulated = simulated_stat_at(directory, path, out, flags);
  return simulated ? *simulated : real(directory, path, out, flags);
}

int statx(int directory, const char *path, int flags, unsigned mask, struct statx *out) noexcept {
  static auto *real = next<int(int, const char *, int, unsigned, struct statx *)>("statx");
  struct stat64 status {};  // gcc takes it for one that may be read unset
  const auto simulated = simulated_stat_at(directory, path, &status, flags);
  if (!simulated) return real(directory, path, flags, mask, out);
  if (*simulated < 0) return *simulated;
  *out = {};
  out->stx_mask = STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_INO | STATX_SIZE;
  out->stx_mode = static_cast<__u16>(status.st_mode);
  out->stx_nlink = 1;
  out->stx_ino = status.st_ino;
  out->stx_size = static_cast<__u64>(status.st_size);
  out->stx_rdev_major = major(status.st_rdev);
  out->stx_rdev_minor = minor(status.st_rdev);
  return 0;
}

int access(const char *path, int mode) noexcept {
  static auto *real = next<int(const char *, int)>("access");
  const auto simulated = simulated_access(path);
  return simulated ? *simulated : real(path, mode);
}

int faccessat(int directory, const char *path, int mode, int flags) noexcept {
  static auto *real = next<int(int, const char *, int, int)>("faccessat");
  const auto simulated = simulated_access(sim::name_at(directory, path));
  return simulated ? *simulated : real(directory, path, mode, flags);
}

ssize_t readlink(const char *path, char *out, std::size_t size) noexcept {
  static auto *real = next<ssize_t(const char *, char *, std::size_t)>("readlink");
  const auto simulated = simulated_read_link(path, out, size);
  return simulated ? *simulated : real(path, out, size);
}

ssize_t readlinkat(int directory, const char *path, char *out, std::size_t size) noexcept {
  static auto *real = next<ssize_t(int, const char *, char *, std::size_t)>("readlinkat");
  const auto simulated = simulated_read_link(sim::name_at(directory, path), out, size);
  return simulated ? *simulated : real(directory, path, out, size);
}

char *realpath(const char *path, char *out) noexcept {
  static auto *real = next<char *(const char *, char *)>("realpath");
  std::string result;
  const auto simulated = path != nullptr ? Host::instance().canonical(path, result) : std::nullopt;
  if (!simulated) return real(path, out);
  if (*simulated < 0) return nullptr;
  return out == nullptr ? strdup(result.c_str()) : std::strcpy(out, result.c_str());
}

// What a fortified caller's functions become.
ssize_t __readlink_chk(const char *path, char *out, std::size_t size, std::size_t /*room*/) {
  return readlink(path, out, size);
}

ssize_t __readlinkat_chk(int directory, const char *path, char *out, std::size_t size,
                         std::size_t /*room*/) {
  return readlinkat(directory, path, out, size);
}

char *__realpath_chk(const char *path, char *out, std::size_t /*room*/) {
  return realpath(path, out);
}

}  // extern "C"
