// The C library functions that the simulated host answers for. Each asks the host first and
// passes everything else on to the next definition.
//
// Compiled without 64-bit file offsets and fortification, whose headers would rename or
// define these functions.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sim/host.h"
#include "sim/platform.h"

namespace {

template <class Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

using OpenFunction = int(const char *, int, ...);

int open_by(OpenFunction *real, const char *path, int flags, mode_t mode) {
  if (const auto simulated = sim::Host::instance().open(path, flags)) return *simulated;
  return real(path, flags, mode);
}

mode_t mode_of(int flags, std::va_list arguments) {
  return __OPEN_NEEDS_MODE(flags) ? va_arg(arguments, mode_t) : 0;
}

template <class Stat>
bool simulated_stat(const char *path, Stat *out) {
  mode_t mode = 0;
  dev_t number = 0;
  if (!sim::Host::instance().stat(path, mode, number)) return false;
  *out = {};
  out->st_mode = mode;
  out->st_rdev = number;
  out->st_nlink = 1;
  return true;
}

std::FILE *open_file_by(std::FILE *(*real)(const char *, const char *), const char *path,
                        const char *mode) {
  sim::Host &host = sim::Host::instance();
  return host.knows_file(path) ? host.open_file(path) : real(path, mode);
}

/// An open directory of the simulated host, handed out as a DIR.
struct Directory {
  std::vector<std::string> names;
  std::size_t position = 0;
  dirent entry{};
  dirent64 entry64{};
};

std::mutex directories_mutex;
std::vector<std::unique_ptr<Directory>> directories;

Directory *find_directory(const void *handle) {
  const std::scoped_lock lock(directories_mutex);
  const auto found = std::find_if(directories.begin(), directories.end(),
                                  [handle](const auto &open) { return open.get() == handle; });
  return found == directories.end() ? nullptr : found->get();
}

template <class Entry>
Entry *read_entry(Directory &directory, Entry &entry) {
  if (directory.position == directory.names.size()) return nullptr;
  entry = {};
  std::strncpy(entry.d_name, directory.names[directory.position++].c_str(),
               sizeof entry.d_name - 1);
  return &entry;
}

}  // namespace

int sim::platform::open(const char *name, int flags, mode_t mode) {
  static auto *real = next<OpenFunction>("open");
  return real(name, flags, mode);
}

int sim::platform::close(int fd) {
  static auto *real = next<int(int)>("close");
  return real(fd);
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

// What a fortified caller's open becomes.
int __open_2(const char *path, int flags) { return open(path, flags); }

int __open64_2(const char *path, int flags) { return open64(path, flags); }

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

int stat(const char *path, struct stat *out) noexcept {
  static auto *real = next<int(const char *, struct stat *)>("stat");
  return simulated_stat(path, out) ? 0 : real(path, out);
}

int stat64(const char *path, struct stat64 *out) noexcept {
  static auto *real = next<int(const char *, struct stat64 *)>("stat64");
  return simulated_stat(path, out) ? 0 : real(path, out);
}

ssize_t readlink(const char *path, char *out, std::size_t size) noexcept {
  static auto *real = next<ssize_t(const char *, char *, std::size_t)>("readlink");
  std::string target;
  if (!sim::Host::instance().read_link(path, target)) return real(path, out, size);
  if (target.empty()) {
    errno = ENOENT;
    return -1;
  }
  return static_cast<ssize_t>(target.copy(out, size));
}

// What a fortified caller's readlink becomes.
ssize_t __readlink_chk(const char *path, char *out, std::size_t size, std::size_t /*room*/) {
  return readlink(path, out, size);
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

DIR *opendir(const char *name) {
  static auto *real = next<DIR *(const char *)>("opendir");
  auto names = sim::Host::instance().directory(name);
  if (!names) return real(name);
  const std::scoped_lock lock(directories_mutex);
  directories.push_back(std::make_unique<Directory>(Directory{.names = std::move(*names)}));
  return reinterpret_cast<DIR *>(directories.back().get());
}

dirent *readdir(DIR *handle) {
  static auto *real = next<dirent *(DIR *)>("readdir");
  Directory *directory = find_directory(handle);
  return directory != nullptr ? read_entry(*directory, directory->entry) : real(handle);
}

dirent64 *readdir64(DIR *handle) {
  static auto *real = next<dirent64 *(DIR *)>("readdir64");
  Directory *directory = find_directory(handle);
  return directory != nullptr ? read_entry(*directory, directory->entry64) : real(handle);
}

int closedir(DIR *handle) {
  static auto *real = next<int(DIR *)>("closedir");
  const std::scoped_lock lock(directories_mutex);
  const auto found =
      std::find_if(directories.begin(), directories.end(), [handle](const auto &open) {
        return static_cast<void *>(open.get()) == static_cast<void *>(handle);
      });
  if (found == directories.end()) return real(handle);
  directories.erase(found);
  return 0;
}

}  // extern "C"
