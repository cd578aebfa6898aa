#include "sim/array.h"

#include <sys/sysmacros.h>

#include "base/bytes.h"

namespace sim {
namespace {

constexpr unsigned multipath_block_major = 252;
constexpr unsigned multipath_raw_major = 253;

constexpr char cpuinfo[] =
    "processor\t: 0\n"
    "vendor_id\t: KZSIM\n"
    "model name\t: Simulated processor\n";

constexpr char devices[] =
    "Character devices:\n"
    " 21 sg\n"
    "253 kzr\n"
    "\n"
    "Block devices:\n"
    "  8 sd\n"
    "252 kz\n";

/// The block nodes of disks, as the kernel lists them.
std::string partitions(const std::vector<UnitSpec> &units) {
  const std::string directory = "/dev/";
  std::string text = "major minor  #blocks  name\n\n";
  for (const UnitSpec &unit : units) {
    for (const PathSpec &path : unit.paths) {
      if (path.kind != NodeKind::block || !path.node.starts_with(directory)) continue;
      text += std::to_string(major(path.number)) + " " + std::to_string(minor(path.number)) +
              " 0 " + path.node.substr(directory.size()) + "\n";
    }
  }
  return text;
}

/// A locally administered NAA 6 identifier.
Bytes demo_identifier(unsigned unit) {
  Bytes naa(16);
  kzddl::store_be64(naa.data(), 0x6024B5A000000001);
  kzddl::store_be64(naa.data() + 8, unit);
  return naa;
}

}  // namespace

void install(Host &host, const std::vector<UnitSpec> &units, const std::string &machine) {
  host.add_control_node();
  host.set_machine(machine);
  host.set_file("/proc/cpuinfo", cpuinfo);
  host.set_file("/proc/devices", devices);
  host.set_file("/proc/partitions", partitions(units));
  unsigned multipath_minor = 0;
  for (const UnitSpec &unit : units) {
    for (const PathSpec &path : unit.paths) {
      host.add({path.node, path.number, path.kind, path.device, path.port});
    }
    if (unit.multipath.empty() || unit.paths.empty()) continue;
    const PathSpec &best = unit.paths.front();
    host.add({std::string(block_directory) + "/" + unit.multipath,
              makedev(multipath_block_major, multipath_minor), NodeKind::block, best.device,
              best.port});
    host.add({std::string(raw_directory) + "/" + unit.multipath,
              makedev(multipath_raw_major, multipath_minor), NodeKind::character, best.device,
              best.port});
    ++multipath_minor;
  }
}

std::vector<UnitSpec> demo_array() {
  constexpr unsigned unit_count = 4;
  constexpr unsigned controllers = 2;
  constexpr unsigned ports_each = 2;
  constexpr unsigned sd_major = 8;
  constexpr unsigned sd_minors = 16;
  constexpr Sense format_in_progress{0x02, 0x04, 0x04};

  std::vector<UnitSpec> units;
  for (unsigned unit = 0; unit < unit_count; ++unit) {
    DiskSpec disk{.serial = "KZ-DEMO-0001", .naa = demo_identifier(unit)};
    if (unit == unit_count - 1) disk.not_ready = format_in_progress;
    const auto device = std::make_shared<Disk>(std::move(disk));
    UnitSpec &spec = units.emplace_back();
    spec.multipath = "disk" + std::to_string(unit);
    for (unsigned port = 0; port < controllers * ports_each; ++port) {
      // The kernel finds units port by port.
      const unsigned index = port * unit_count + unit;
      spec.paths.push_back({.node = std::string("/dev/sd") + static_cast<char>('a' + index),
                            .number = makedev(sd_major, sd_minors * index),
                            .port = {.relative_id = static_cast<std::uint16_t>(port + 1),
                                     .group = static_cast<std::uint16_t>(port / ports_each + 1)},
                            .device = device});
    }
  }
  return units;
}

}  // namespace sim
