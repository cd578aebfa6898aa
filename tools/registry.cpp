#include "tools/registry.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <tuple>

#include "tools/property.h"

namespace tool {
namespace {

/// The text attributes of a disk, each with its property.
struct TextAttribute {
  const char *property;
  std::string &(*in)(Disk &);
};

constexpr TextAttribute text_attributes[] = {
    {property::lun_id, [](Disk &disk) -> std::string & { return disk.name.identifier; }},
    {property::cabinet, [](Disk &disk) -> std::string & { return disk.cabinet; }},
    {property::device_type, [](Disk &disk) -> std::string & { return disk.device_type; }},
    {property::vendor, [](Disk &disk) -> std::string & { return disk.vendor; }},
    {property::product, [](Disk &disk) -> std::string & { return disk.product; }},
    {property::revision, [](Disk &disk) -> std::string & { return disk.revision; }},
    {property::capacity, [](Disk &disk) -> std::string & { return disk.capacity; }},
    {property::block_size, [](Disk &disk) -> std::string & { return disk.block_size; }},
    {property::controller, [](Disk &disk) -> std::string & { return disk.controller; }},
    {property::address, [](Disk &disk) -> std::string & { return disk.address; }},
};

std::string kind_text(std::uint8_t kind) { return fmt::format("{:02X}", kind); }

AccessPath &access_of(Disk &disk) {
  if (!disk.access) disk.access = {.state = std::nullopt};
  return *disk.access;
}

/// What a disk's links say of it.
void read_attribute(Disk &disk, const Link &link) {
  const std::string text(link.value.payload());
  if (link.property == property::lun_id_type) {
    disk.name.kind = static_cast<std::uint8_t>(std::stoul(text, nullptr, 16));
  } else if (link.property == property::device_number) {
    std::sscanf(text.c_str(), "%u:%u", &disk.number.major, &disk.number.minor);
  } else if (link.property == property::ready) {
    disk.readiness = readiness_from_words(text);
  } else if (link.property == property::problem) {
    disk.problems.push_back(Problem::from_stored(text));
  } else if (link.property == property::port_group) {
    access_of(disk).group = static_cast<unsigned>(std::stoul(text));
  } else if (link.property == property::access_state) {
    access_of(disk).state = access_state_from_words(text);
  } else if (link.property == property::preferred) {
    access_of(disk).preferred = text == yes_no(true);
  } else {
    for (const TextAttribute &attribute : text_attributes) {
      if (link.property == attribute.property) attribute.in(disk) = text;
    }
  }
}

std::optional<Disk> find_disk(std::string_view node) {
  const std::vector<Link> links = links_of(property::disk, Value(node));
  if (links.empty()) return std::nullopt;
  Disk disk{};
  disk.node = node;
  for (const Link &link : links)
    read_attribute(disk, link);
  return disk;
}

/// A node's name tells nothing of the unit: such a node stands with those of its address alone.
std::vector<Disk> disks_of_unit(const Disk &disk) {
  const bool is_named = names_unit(disk.name);
  if (!is_named && disk.address.empty()) return {disk};
  std::vector<Disk> disks;
  for (const Value &node :
       is_named ? linked(property::lun_id, Value(disk.name.identifier), property::disk)
                : linked(property::address, Value(disk.address), property::disk)) {
    const std::optional<Disk> other = find_disk(node.payload());
    if (!other) continue;
    const bool same_kind = is_named ? other->name.kind == disk.name.kind : !names_unit(other->name);
    if (same_kind) disks.push_back(*other);
  }
  return disks;
}

/// Of two paths the better one has the lower rank. "/dev/sdz" comes before "/dev/sdaa".
auto rank(const Path &path) {
  return std::tuple(path.access ? 0 : 1, path.access.value_or(AccessPath{}).rank(),
                    path.node.size(), path.node);
}

LogicalUnit unit_of(const Disk &disk) {
  return {
      .identifier = escaped(disk.name.identifier),
      .identifier_kind = disk.name.kind,
      .device_type = disk.device_type,
      .vendor = escaped(disk.vendor),
      .product = escaped(disk.product),
      .revision = escaped(disk.revision),
      .capacity = {},
      .block_size = {},
      .cabinet = {},
      .multipath_nodes = {},
      .paths = {},
  };
}

}  // namespace

void store_disk(const Disk &disk) {
  const Value node(disk.node);
  const auto store = [&node](const char *name, const std::string &text) {
    relate(property::disk, node, name, Value(text));
  };
  Disk copy = disk;
  for (const TextAttribute &attribute : text_attributes) {
    // An identifier there is always; nodes are found by it.
    const std::string &text = attribute.in(copy);
    if (!text.empty() || attribute.property == property::lun_id) store(attribute.property, text);
  }
  store(property::lun_id_type, kind_text(disk.name.kind));
  store(property::device_number, disk.number.text());
  if (disk.access) {
    store(property::port_group, std::to_string(disk.access->group));
  }
  if (disk.access && disk.access->state) {
    store(property::access_state, disk.access->state_words());
    store(property::preferred, yes_no(disk.access->preferred));
  }
  store(property::ready, disk.readiness.words());
  for (const Problem &problem : disk.problems)
    store(property::problem, problem.stored());
}

void link_multipath_names() {
  for (const Value &node : values_of(property::disk)) {
    if (!is_multipath(node.payload())) continue;
    const std::optional<Disk> multipath = find_disk(node.payload());
    if (!multipath) continue;
    const Value name(multipath_name(node.payload()));
    for (const Disk &disk : disks_of_unit(*multipath))
      relate(property::disk, Value(disk.node), property::jox_device, name);
  }
}

std::vector<LogicalUnit> read_units(const std::vector<std::string> &nodes) {
  std::map<std::string, std::size_t> position;
  for (const std::string &node : nodes)
    position.emplace(node, position.size());
  const auto comes_first = [&position](const Disk &a, const Disk &b) {
    return position[a.node] < position[b.node];
  };

  std::vector<LogicalUnit> units;
  std::set<std::string> placed;
  for (const std::string &node : nodes) {
    if (placed.contains(node)) continue;
    const std::optional<Disk> first = find_disk(node);
    if (!first) continue;
    LogicalUnit &unit = units.emplace_back(unit_of(*first));
    std::vector<Disk> disks = disks_of_unit(*first);
    std::sort(disks.begin(), disks.end(), comes_first);
    for (const Disk &disk : disks) {
      placed.insert(disk.node);
      if (!disk.capacity.empty()) unit.capacity = std::stoull(disk.capacity);
      if (!disk.block_size.empty()) unit.block_size = std::stoull(disk.block_size);
      if (unit.cabinet.empty()) unit.cabinet = escaped(disk.cabinet);
      (is_multipath(disk.node) ? unit.multipath_nodes : unit.paths)
          .push_back({.node = escaped(disk.node),
                      .number = disk.number,
                      .address = disk.address,
                      .access = disk.access,
                      .readiness = disk.readiness,
                      .problems = disk.problems});
    }
    std::ranges::sort(unit.paths, {}, rank);
  }
  return units;
}

}  // namespace tool
