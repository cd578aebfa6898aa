// Arrays described in JSON: every mistake is reported with its place in the file.
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>

#include "capture/capture.h"
#include "sim/array.h"
#include "sim/disk.h"
#include "sim/disk_json.h"
#include "sim/fault_json.h"
#include "sim/hostile.h"
#include "sim/json_file.h"
#include "sim/json_value.h"
#include "sim/replay.h"
#include "sim/state_file.h"

namespace sim {
namespace {

using nlohmann::json;

/// Puts the path's port into its group.
void join_group(std::vector<TargetPortGroup> &groups, const Port &port, const Value &path) {
  if (groups.empty()) return;
  const std::string id = std::to_string(port.group);
  const auto own = std::ranges::find(groups, port.group, &TargetPortGroup::id);
  if (own == groups.end()) path.fail("the unit has no target port group " + id);
  for (const TargetPortGroup &group : groups) {
    if (std::ranges::find(group.ports, port.relative_id) == group.ports.end()) continue;
    if (&group == &*own) return;
    path.fail("port " + std::to_string(port.relative_id) + " is in group " +
              std::to_string(group.id) + " on another path, in group " + id + " here");
  }
  if (own->ports.size() == 255) path.fail("a target port group has at most 255 ports");
  own->ports.push_back(port.relative_id);
}

std::shared_ptr<Device> read_replay(const Value &value, const std::filesystem::path &folder) {
  try {
    return std::make_shared<Replay>((folder / value.text()).string());
  } catch (const capture::Error &error) {
    value.fail(error.what());
  }
}

std::shared_ptr<Device> make_disk(const Value &value, DiskSpec spec) {
  try {
    return std::make_shared<Disk>(std::move(spec));
  } catch (const StateError &error) {  // the file for its blocks is no good
    value.at("file").fail(error.what());
  }
}

/// Where the description asks for it, a hostile device takes the place of `device`.
void read_hostile(const Value &value, std::shared_ptr<Device> &device) {
  if (!value.has("hostile")) return;
  device = std::make_shared<Hostile>(value.at("hostile").number<std::uint64_t>(), device);
}

/// "1:0:0:3": host, channel, target and unit.
std::string read_address(const Value &value) {
  std::string text = value.text(64);
  const bool is_plain = text.find_first_not_of("0123456789:") == std::string::npos;
  int length = 0;
  std::sscanf(text.c_str(), "%*u:%*u:%*u:%*u%n", &length);
  if (!is_plain || length != static_cast<int>(text.size())) {
    value.fail("expected four numbers, as in \"1:0:0:3\"");
  }
  return text;
}

/// What the kernel says of the path, and then does.
void read_state(const Value &value, PathSpec &path) {
  value.choice({"running", "blocked", "offline", "transport-offline"});
  path.state = value.text();
  if (path.state.ends_with("offline")) path.faults.push_back(Fault::offline());
}

std::vector<std::string> read_links(const Value &value) {
  std::vector<std::string> links;
  for (const Value &each : value.list()) {
    links.push_back(each.text(255));
    if (!links.back().starts_with("/dev/") || links.back().ends_with("/")) {
      each.fail("expected a name in /dev");
    }
  }
  return links;
}

/// A path without its device, unless captured replies answer on it.
PathSpec read_path(const Value &value, const std::filesystem::path &folder) {
  value.require_object({"node", "device", "kind", "port", "group", "initiator", "address", "replay",
                        "hostile", "fail", "delay_ms", "state", "capacity_known", "links"});
  PathSpec path{.node = value.at("node").text(255)};
  if (!path.node.starts_with("/")) value.at("node").fail("expected an absolute name");
  const auto [major, minor] = value.at("device").pair(':', 10, 0xFFFFF);
  path.number = makedev(major, minor);
  if (value.has("kind")) {
    path.kind = static_cast<NodeKind>(value.at("kind").choice({"block", "character"}));
  }
  value.read("port", path.port.relative_id);
  value.read("group", path.port.group);
  value.read("initiator", path.initiator, 64);
  if (value.has("address")) path.address = read_address(value.at("address"));
  if (value.has("replay")) path.device = read_replay(value.at("replay"), folder);
  path.faults = read_faults(value);
  if (value.has("state")) read_state(value.at("state"), path);
  value.read("capacity_known", path.capacity_known);
  if (value.has("links")) path.links = read_links(value.at("links"));
  return path;
}

UnitSpec read_unit(const Value &value, const std::filesystem::path &folder) {
  value.require_object({"vendor", "product", "revision", "serial", "naa", "designators",
                        "vpd_pages", "not_ready", "blocks", "block_size", "file", "geometry",
                        "answers_page_0", "copy", "groups", "multipath", "hostile", "paths"});
  UnitSpec unit;
  value.read("multipath", unit.multipath, 128);
  if (unit.multipath.find('/') != std::string::npos) {
    value.at("multipath").fail("expected a name without \"/\"");
  }
  DiskSpec spec = read_disk(value);
  if (!spec.file.empty()) spec.file = (folder / spec.file).string();
  const std::vector<Value> paths = value.at("paths").list();
  for (const Value &each : paths) {
    const PathSpec &path = unit.paths.emplace_back(read_path(each, folder));
    if (path.device == nullptr) join_group(spec.groups, path.port, each);
  }
  unit.best_path = best_path(unit.paths, spec.groups);
  std::shared_ptr<Device> disk = make_disk(value, std::move(spec));
  read_hostile(value, disk);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    std::shared_ptr<Device> &device = unit.paths[i].device;
    if (device == nullptr) device = disk;
    read_hostile(paths[i], device);
  }
  return unit;
}

/// Nodes are found by name and by number: both must be one path's alone.
void require_distinct(const std::vector<UnitSpec> &units) {
  std::set<std::string> names{control_node};
  std::set<dev_t> numbers;
  const auto add_name = [&](const std::string &name) {
    if (!names.insert(name).second) {
      throw ArrayError("/units: node \"" + name + "\" is used twice");
    }
  };
  const auto add = [&](const std::string &name, dev_t number) {
    add_name(name);
    if (!numbers.insert(number).second) {
      throw ArrayError("/units: the device number of \"" + name + "\" is used twice");
    }
  };
  for (const UnitSpec &unit : units) {
    for (const PathSpec &path : unit.paths) {
      add(path.node, path.number);
      std::ranges::for_each(path.links, add_name);
    }
  }
  for (const Node &node : multipath_nodes(units))
    add(node.name, node.number);
}

}  // namespace

void install_file(Host &host, const std::string &file, const HostSpec &spec) {
  try {
    const std::optional<json> document = read_json(file);
    if (!document) throw ArrayError(std::strerror(ENOENT));
    const Value root(*document, "");
    root.require_object({"machine", "privileged", "units"});
    std::string machine = "x86_64";
    root.read("machine", machine, 64);
    std::vector<UnitSpec> units;
    for (const Value &unit : root.at("units").list()) {
      units.push_back(read_unit(unit, std::filesystem::path(file).parent_path()));
    }
    require_distinct(units);
    install(host, std::move(units), machine, spec);
    bool privileged = true;
    root.read("privileged", privileged);
    if (!privileged) host.drop_privileges();
  } catch (const JsonError &error) {
    throw ArrayError(file + ": " + error.what());
  } catch (const ArrayError &error) {
    throw ArrayError(file + ": " + error.what());
  }
}

}  // namespace sim
