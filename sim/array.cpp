#include "sim/array.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <string_view>
#include <utility>

#include "base/bytes.h"
#include "sim/disk.h"
#include "sim/hostile.h"

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

/// A disk's size in units of 512 bytes, as the kernel learned it when the path was well; 0 when it
/// did not.
std::uint64_t sectors_of(const PathSpec &path) {
  if (!path.capacity_known || path.kind != NodeKind::block) return 0;
  if (const auto sectors = path.device->sectors()) return *sectors;
  Bytes cdb(cdb_room);
  cdb[0] = opcode::service_action_in_16;
  cdb[1] = 0x10;  // READ CAPACITY(16)
  cdb[13] = 32;
  const Reply reply = path.device->execute({.cdb = cdb, .initiator = path.initiator}, path.port);
  if (reply.error != 0 || reply.status != status::good || reply.data.size() < 12) return 0;
  return (kzddl::load_be64(&reply.data[0]) + 1) * (kzddl::load_be32(&reply.data[8]) / 512);
}

/// The block nodes of disks, as the kernel lists them: those whose size it knows.
FileTree::Read partitions(const Host &host, const std::vector<Node> &nodes) {
  const std::string directory = "/dev/";
  std::vector<std::pair<std::string, std::string>> lines;  // of nodes
  for (const Node &node : nodes) {
    if (node.sectors == 0 || !node.name.starts_with(directory)) continue;
    lines.emplace_back(node.name, std::to_string(major(node.number)) + " " +
                                      std::to_string(minor(node.number)) + " " +
                                      std::to_string(node.sectors / 2) + " " +
                                      node.name.substr(directory.size()) + "\n");
  }
  return [&host, lines = std::move(lines)] {
    std::string text = "major minor  #blocks  name\n\n";
    for (const auto &[node, line] : lines)
      if (!host.is_removed(node)) text += line;
    return text;
  };
}

/// A unit goes on from the state that is kept in `store`.
void keep(UnitSpec &unit, const std::filesystem::path &store) {
  for (const PathSpec &path : unit.paths) {
    std::string name = path.node.substr(1);
    std::ranges::replace(name, '/', '-');
    path.device->keep_in(store, name);
  }
  // Captured replies know no groups; any other path of the unit does, if the unit has some.
  for (const PathSpec &path : unit.paths) {
    const std::vector<TargetPortGroup> groups = path.device->target_port_groups();
    if (groups.empty()) continue;
    unit.best_path = best_path(unit.paths, groups);
    return;
  }
}

/// Puts a hostile device before each, with a seed of its own.
void make_hostile(std::vector<UnitSpec> &units, std::uint64_t seed) {
  Random seeds(seed);
  std::map<std::shared_ptr<Device>, std::shared_ptr<Device>> hostile;
  for (UnitSpec &unit : units) {
    for (PathSpec &path : unit.paths) {
      std::shared_ptr<Device> &device = hostile[path.device];
      if (device == nullptr) device = std::make_shared<Hostile>(seeds.next(), path.device);
      path.device = device;
    }
  }
}

std::uint64_t parse_seed(const char *variable, std::string_view text) {
  std::uint64_t seed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  if (error != std::errc{} || end != text.data() + text.size()) {
    throw ArrayError(std::string(variable) + ": expected a whole number from 0 to 2^64 - 1");
  }
  return seed;
}

/// A locally administered NAA 6 identifier.
Bytes demo_identifier(unsigned unit) {
  Bytes naa(16);
  kzddl::store_be64(naa.data(), 0x6024B5A000000001);
  kzddl::store_be64(naa.data() + 8, unit);
  return naa;
}

/// Two adapters of the host: each reaches one port of each controller.
std::string demo_address(unsigned port, unsigned unit) {
  return std::to_string(port % 2) + ":0:" + std::to_string(port / 2) + ":" + std::to_string(unit);
}

}  // namespace

HostSpec HostSpec::from_environment() {
  HostSpec spec;
  if (const char *name = std::getenv("KZSIM_HOST"); name != nullptr) spec.initiator = name;
  if (const char *directory = std::getenv("KZSIM_STORE"); directory != nullptr) {
    spec.store = directory;
  }
  constexpr char hostile[] = "KZSIM_HOSTILE";
  if (const char *seed = std::getenv(hostile); seed != nullptr) {
    spec.hostile = parse_seed(hostile, seed);
  }
  return spec;
}

void install(Host &host, std::vector<UnitSpec> units, const std::string &machine,
             const HostSpec &spec) {
  for (UnitSpec &unit : units) {
    for (PathSpec &path : unit.paths) {
      if (path.initiator.empty()) path.initiator = spec.initiator;
    }
  }
  if (spec.hostile) make_hostile(units, *spec.hostile);
  host.add_control_node();
  host.set_machine(machine);
  host.set_file("/proc/cpuinfo", cpuinfo);
  host.set_file("/proc/devices", devices);
  std::vector<Node> nodes;
  for (const UnitSpec &unit : units) {
    for (const PathSpec &path : unit.paths) {
      nodes.push_back({path.node, path.number, path.kind, path.device, path.port, path.initiator,
                       path.address, sectors_of(path), path.state});
    }
  }
  host.set_file("/proc/partitions", partitions(host, nodes));
  // Later than that: the program is told of what is pending, not the kernel as it looks for disks.
  for (UnitSpec &unit : units) {
    if (!spec.store.empty()) keep(unit, spec.store);
  }
  for (Node &node : nodes)
    host.add(std::move(node));
  for (const UnitSpec &unit : units) {
    for (const PathSpec &path : unit.paths) {
      for (const Fault &fault : path.faults)
        host.inject(path.node, fault);
      for (const std::string &link : path.links)
        host.add_link(link, path.node);
    }
  }
  for (const Node &node : multipath_nodes(units))
    host.add(node);
}

std::vector<Node> multipath_nodes(const std::vector<UnitSpec> &units) {
  std::vector<Node> nodes;
  unsigned number = 0;
  for (const UnitSpec &unit : units) {
    if (unit.multipath.empty() || unit.paths.empty()) continue;
    const PathSpec &best = unit.paths.at(unit.best_path);
    nodes.push_back({std::string(block_directory) + "/" + unit.multipath,
                     makedev(multipath_block_major, number), NodeKind::block, best.device,
                     best.port, best.initiator});
    nodes.push_back({std::string(raw_directory) + "/" + unit.multipath,
                     makedev(multipath_raw_major, number), NodeKind::character, best.device,
                     best.port, best.initiator});
    ++number;
  }
  return nodes;
}

std::size_t best_path(const std::vector<PathSpec> &paths,
                      const std::vector<TargetPortGroup> &groups) {
  /// Lower is better.
  const auto rank = [&groups](const PathSpec &path) {
    const auto group = std::ranges::find(groups, path.port.group, &TargetPortGroup::id);
    return group == groups.end() ? std::pair(AccessState::active_optimized, true)
                                 : std::pair(group->state, !group->preferred);
  };
  return static_cast<std::size_t>(std::ranges::min_element(paths, {}, rank) - paths.begin());
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
    if (unit == 1) disk.blocks = 8'589'934'592;  // 4 TiB: more than 32 bits can count
    if (unit == 2) disk.block_size = 4096;
    if (unit == 3) disk.not_ready = format_in_progress;
    for (unsigned controller = 0; controller < controllers; ++controller) {
      // The controllers take turns in owning the units.
      const bool owns = unit % controllers == controller;
      disk.groups.push_back(
          {.id = static_cast<std::uint16_t>(controller + 1),
           .state = owns ? AccessState::active_optimized : AccessState::active_non_optimized,
           .preferred = owns});
    }

    UnitSpec &spec = units.emplace_back();
    spec.multipath = "disk" + std::to_string(unit);
    for (unsigned port = 0; port < controllers * ports_each; ++port) {
      TargetPortGroup &group = disk.groups[port / ports_each];
      group.ports.push_back(static_cast<std::uint16_t>(port + 1));
      // The kernel finds units port by port.
      const unsigned index = port * unit_count + unit;
      spec.paths.push_back({.node = std::string("/dev/sd") + static_cast<char>('a' + index),
                            .number = makedev(sd_major, sd_minors * index),
                            .port = {.relative_id = group.ports.back(), .group = group.id},
                            .address = demo_address(port, unit)});
    }
    spec.best_path = best_path(spec.paths, disk.groups);
    const auto device = std::make_shared<Disk>(std::move(disk));
    for (PathSpec &path : spec.paths)
      path.device = device;
  }
  return units;
}

}  // namespace sim
