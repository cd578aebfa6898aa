#include "tools/device.h"

#include <dirent.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "base/driver.h"
#include "tools/error.h"
#include "tools/text.h"

namespace tool {
namespace {

using kzddl::block_directory;
using kzddl::raw_directory;

/// What the kernel lists of block devices, whatever their size.
constexpr char block_devices[] = "/sys/class/block";

struct CloseDirectory {
  void operator()(DIR *directory) const { closedir(directory); }
};

bool lies_in(std::string_view node, std::string_view directory) {
  return node.size() > directory.size() + 1 && node.starts_with(directory) &&
         node[directory.size()] == '/';
}

/// "1:0:0:3".
bool is_address(std::string_view name) {
  return std::count(name.begin(), name.end(), ':') == 3 &&
         name.find_first_not_of("0123456789:") == std::string_view::npos;
}

/// "sda" and "sdaa", not the partition "sda1".
bool is_whole_disk(std::string_view name) {
  constexpr std::string_view driver = "sd";
  if (!name.starts_with(driver) || name == driver) return false;
  name.remove_prefix(driver.size());
  return std::all_of(name.begin(), name.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

[[noreturn]] void throw_unlisted(const char *directory) {
  throw Error::failure(fmt::format("cannot list {}: {}", directory, std::strerror(errno)));
}

/// The names in a directory; nothing when there is no such directory.
std::optional<std::vector<std::string>> names_in(const char *name) {
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(name));
  if (directory == nullptr && errno == ENOENT) return std::nullopt;
  if (directory == nullptr) throw_unlisted(name);
  std::vector<std::string> names;
  const auto next = [&directory] {
    errno = 0;
    return readdir(directory.get());
  };
  while (const dirent *entry = next())
    names.emplace_back(entry->d_name);
  if (errno != 0) throw_unlisted(name);
  std::ranges::sort(names);
  return names;
}

std::vector<std::string> disks() {
  std::vector<std::string> nodes;
  const auto names = names_in(block_devices);
  if (!names) throw_unlisted(block_devices);
  for (const std::string &name : *names) {
    if (is_whole_disk(name)) nodes.push_back("/dev/" + name);
  }
  // "sdz" comes before "sdaa".
  std::ranges::stable_sort(nodes, {}, &std::string::size);
  return nodes;
}

std::vector<std::string> multipath_nodes() {
  std::vector<std::string> nodes;
  for (const std::string &name : names_in(raw_directory).value_or(std::vector<std::string>{})) {
    if (name != "." && name != "..") nodes.push_back(fmt::format("{}/{}", raw_directory, name));
  }
  return nodes;
}

}  // namespace

Device::Device(const std::string &node) : name_(escaped(node)) {
  if (node.size() >= sizeof path_.devname) throw Error("stat", name_, std::strerror(ENAMETOOLONG));
  struct stat status;
  if (stat(node.c_str(), &status) != 0) throw Error("stat", name_, std::strerror(errno));
  if (!S_ISBLK(status.st_mode) && !S_ISCHR(status.st_mode)) {
    throw Error("stat", name_, "not a device node");
  }
  std::memcpy(path_.devname, node.c_str(), node.size() + 1);
  path_.dev = status.st_rdev;
  path_.blkdev = status.st_rdev;
  is_block_ = S_ISBLK(status.st_mode);
}

std::string DeviceNumber::text() const { return fmt::format("{}:{}", major, minor); }

DeviceNumber Device::number() const {
  return {.major = gnu_dev_major(path_.dev), .minor = gnu_dev_minor(path_.dev)};
}

std::string Device::address() const {
  const std::string link =
      fmt::format("/sys/dev/{}/{}/device", is_block_ ? "block" : "char", number().text());
  std::array<char, 256> target;
  const ssize_t size = readlink(link.c_str(), target.data(), target.size());
  std::string name(target.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  name.erase(0, name.rfind('/') + 1);
  return is_address(name) ? name : "";
}

bool is_multipath(std::string_view node) {
  return lies_in(node, block_directory) || lies_in(node, raw_directory);
}

std::string_view multipath_name(std::string_view node) {
  const std::string_view directory =
      lies_in(node, block_directory) ? block_directory : raw_directory;
  return node.substr(directory.size() + 1);
}

std::vector<std::string> find_nodes() {
  std::vector<std::string> nodes = disks();
  const std::vector<std::string> multipath = multipath_nodes();
  nodes.insert(nodes.end(), multipath.begin(), multipath.end());
  return nodes;
}

}  // namespace tool
