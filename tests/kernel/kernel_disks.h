// The disks of the emulated machine that scripts/test-kernel boots.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "kzddl/kzddl.h"

namespace kzddl_test {

/// A disk as sysfs shows it.
struct KernelDisk {
  std::array<int, 4> address;  ///< host, channel, target, unit
  std::string node;
  std::filesystem::path directory;

  auto operator<=>(const KernelDisk &other) const { return address <=> other.address; }

  odh path() const {
    odh record{};
    std::strcpy(record.devname, node.c_str());
    record.dev = record.blkdev = find_device_number(node.c_str());
    return record;
  }

  /// Writes to a file of the disk's directory.
  void control(const char *file, const char *text) const {
    std::ofstream(directory / file) << text << std::flush;
  }
};

/// The disks of a vendor, in the order of their addresses.
inline std::vector<KernelDisk> disks_of(const std::string &vendor) {
  std::vector<KernelDisk> found;
  for (const auto &entry : std::filesystem::directory_iterator("/sys/class/scsi_disk")) {
    const std::filesystem::path directory = entry.path() / "device";
    std::string name;
    std::ifstream(directory / "vendor") >> name;
    if (name != vendor) continue;
    KernelDisk disk{{}, "/dev/", directory};
    auto &[host, channel, target, unit] = disk.address;
    std::sscanf(entry.path().filename().c_str(), "%d:%d:%d:%d", &host, &channel, &target, &unit);
    std::error_code none;  // a disk that comes or goes has no block device
    for (const auto &block : std::filesystem::directory_iterator(directory / "block", none))
      disk.node += block.path().filename();
    if (!none && std::filesystem::exists(disk.node)) found.push_back(disk);
  }
  std::sort(found.begin(), found.end());
  return found;
}

/// Disks in the kernel's memory, each behind one path.
inline std::vector<KernelDisk> debug_disks() { return disks_of("Linux"); }
/// The two paths of one disk, behind ports 1 and 2 in target port groups 0 and 1.
inline std::vector<KernelDisk> two_paths() { return disks_of("LIO-ORG"); }
/// A disk with mode pages 3 and 4.
inline std::vector<KernelDisk> network_disks() { return disks_of("IET"); }

/// Do the tests go through the control node?
inline bool indirect() {
  const char *route = std::getenv("KZTEST_ROUTE");
  return route != nullptr && std::strcmp(route, "indirect") == 0;
}

}  // namespace kzddl_test
