#include "control/device.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

namespace control {
namespace {

/// The last part of what a link of sysfs points to; empty where there is no such link.
std::string link_name(const std::string &link) {
  std::error_code none;
  return std::filesystem::read_symlink(link, none).filename();
}

/// Is this the place of a block device that the SCSI layer drives, or of a partition of one? The
/// place is a link itself: its ".." is the disk of a partition.
bool is_scsi_block(const std::string &place) {
  return link_name(place + "/device/subsystem") == "scsi" ||
         link_name(place + "/../device/subsystem") == "scsi";
}

bool is_sg(const std::string &place) { return link_name(place + "/subsystem") == "scsi_generic"; }

/// The node of the device that sysfs shows at a place.
std::string node_of(const std::string &place) {
  constexpr char key[] = "DEVNAME=";
  std::ifstream properties(place + "/uevent");
  for (std::string line; std::getline(properties, line);)
    if (line.starts_with(key)) return "/dev/" + line.substr(sizeof key - 1);
  return {};
}

/// The node, if it is there and still that of the number.
int open_node(const std::string &node, mode_t kind, std::uint64_t device, int flags) {
  // A caller's flags may not make a file in the place of a device that has just gone.
  const int fd = open(node.c_str(), (flags & ~O_CREAT) | O_CLOEXEC);
  if (fd < 0) return -errno;
  struct stat status;
  if (fstat(fd, &status) == 0 && (status.st_mode & S_IFMT) == kind && status.st_rdev == device) {
    return fd;
  }
  close(fd);
  return -ENODEV;
}

}  // namespace

int open_device(std::uint64_t device, int flags) {
  const std::string number = std::to_string(major(device)) + ":" + std::to_string(minor(device));
  const std::string block = "/sys/dev/block/" + number;
  if (is_scsi_block(block)) return open_node(node_of(block), S_IFBLK, device, flags);
  const std::string character = "/sys/dev/char/" + number;
  if (is_sg(character)) return open_node(node_of(character), S_IFCHR, device, flags);
  return -ENODEV;
}

}  // namespace control
