// The C library functions that read directories, as interpose.cpp has those that open files.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sim/host.h"
#include "sim/platform.h"

namespace {

using sim::platform::next;

/// An open directory of the simulated host, handed out as a DIR.
struct Directory {
  std::vector<sim::DirectoryEntry> entries;
  int fd = -1;  ///< where it was opened by one
  std::size_t position = 0;
  dirent entry{};
  dirent64 entry64{};
};

std::mutex directories_mutex;

/// Those that are open. Never destroyed, and there before any library's own start-up.
std::map<const void *, std::unique_ptr<Directory>> &directories() {
  static auto &map = *new std::map<const void *, std::unique_ptr<Directory>>;
  return map;
}

Directory *find_directory(const void *handle) {
  const std::scoped_lock lock(directories_mutex);
  const auto found = directories().find(handle);
  return found == directories().end() ? nullptr : found->second.get();
}

/// The simulated directory of that name; empty where it is the real system's.
std::optional<DIR *> open_directory(const std::string &name, int fd) {
  auto directory = std::make_unique<Directory>(
      Directory{.entries = {{".", S_IFDIR}, {"..", S_IFDIR}}, .fd = fd});
  const auto listed = sim::Host::instance().list(name, directory->entries);
  if (!listed) return std::nullopt;
  if (*listed < 0) return nullptr;
  auto *const handle = reinterpret_cast<DIR *>(directory.get());
  const std::scoped_lock lock(directories_mutex);
  directories()[handle] = std::move(directory);
  return handle;
}

template <class Entry>
Entry *read_entry(Directory &directory, Entry &entry) {
  if (directory.position == directory.entries.size()) return nullptr;
  const auto &[name, type] = directory.entries[directory.position++];
  entry = {};
  entry.d_ino = directory.position;
  entry.d_type = IFTODT(type);
  std::strncpy(entry.d_name, name.c_str(), sizeof entry.d_name - 1);
  return &entry;
}

}  // namespace

extern "C" {

DIR *opendir(const char *name) {
  static auto *real = next<DIR *(const char *)>("opendir");
  const auto simulated = open_directory(name, -1);
  return simulated ? *simulated : real(name);
}

DIR *fdopendir(int fd) {
  static auto *real = next<DIR *(int)>("fdopendir");
  const auto name = sim::Host::instance().name_of(fd);
  const auto simulated = name ? open_directory(*name, fd) : std::nullopt;
  return simulated ? *simulated : real(fd);
}

int dirfd(DIR *handle) noexcept {
  static auto *real = next<int(DIR *)>("dirfd");
  const Directory *directory = find_directory(handle);
  if (directory == nullptr) return real(handle);
  if (directory->fd < 0) errno = ENOTSUP;
  return directory->fd;
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

void rewinddir(DIR *handle) noexcept {
  static auto *real = next<void(DIR *)>("rewinddir");
  Directory *directory = find_directory(handle);
  if (directory == nullptr) return real(handle);
  directory->position = 0;
}

int closedir(DIR *handle) {
  static auto *real = next<int(DIR *)>("closedir");
  std::unique_ptr<Directory> directory;
  {
    const std::scoped_lock lock(directories_mutex);
    const auto found = directories().find(handle);
    if (found != directories().end()) {
      directory = std::move(found->second);
      directories().erase(found);
    }
  }
  if (directory == nullptr) return real(handle);
  return directory->fd < 0 ? 0 : close(directory->fd);
}

}  // extern "C"
