#include "tools/discovery.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

#include "kzddl/ddlts.h"
#include "tools/capacity.h"
#include "tools/device.h"
#include "tools/inquiry.h"
#include "tools/port_groups.h"
#include "tools/property.h"
#include "tools/scsi_words.h"

namespace tool {
namespace {

constexpr unsigned no_logical_unit = 3;  // peripheral qualifier

/// A field of standard inquiry data as far as the device sent it.
std::string field(ByteSpan data, std::size_t at, std::size_t size) {
  if (data.size() < at) return {};
  return std::string(trimmed(data.subspan(at, std::min(size, data.size() - at))));
}

/// The answer to a question, if there is one; else why not goes to the disk's problems.
template <class Ask>
auto answer(Disk &disk, const Ask &ask) -> std::optional<decltype(ask())> {
  try {
    return ask();
  } catch (const Error &error) {
    disk.problems.emplace_back(error);
    return std::nullopt;
  }
}

void ask_readiness(Disk &disk, Device &device) {
  if (const auto readiness = answer(disk, [&] { return test_unit_ready(device); })) {
    disk.readiness = *readiness;
    if (!readiness->ready) disk.problems.emplace_back("ready", readiness->reason, readiness->sense);
  } else {
    disk.readiness = {.ready = false, .reason = disk.problems.back().reason};
  }
}

/// The way through the target port that a path leads to. A multipath node leads to one at one time
/// and to another at another.
void ask_access(Disk &disk, Device &device, ByteSpan inquiry, const OwnPort &port) {
  if (!port.group || !has_port_groups(inquiry)) return;
  if (const auto access = answer(disk, [&] { return access_path(device, port); })) {
    disk.access = *access;
  } else {
    disk.access = {.group = *port.group, .state = std::nullopt};
  }
}

void ask_capacity(Disk &disk, Device &device) {
  const auto capacity = answer(disk, [&] { return read_capacity(device); });
  if (!capacity) return;
  disk.block_size = fmt::format("{}", capacity->block_size);
  if (const auto bytes = capacity->bytes()) disk.capacity = fmt::format("{}", *bytes);
}

/// Ports of different cabinets have the same numbers. Where no cabinet is known, the unit tells
/// them apart.
std::string controller_of(const Identity &identity, const OwnPort &port) {
  const std::string words = port.words();
  if (words.empty()) return {};
  const std::string text = identity.cabinet.empty()
                               ? fmt::format("unit {}, {}", identity.identifier, words)
                               : fmt::format("cabinet {}, {}", identity.cabinet, words);
  return text.size() <= KZDDL_TS_MAX_PAYLOAD ? text : "";  // a cut one might be another's
}

/// Throws Error when the node does not say which unit it leads to.
Disk survey(Device &device) {
  const std::string node = device.path()->devname;
  const std::vector<std::uint8_t> inquiry = read_inquiry(device, std::nullopt);
  if (inquiry[0] >> 5 == no_logical_unit) {
    throw Error("inquiry", device.name(), "there is no logical unit at this address");
  }
  const Identity identity = identify(device);
  const OwnPort port = is_multipath(node) ? OwnPort() : own_port(identity.page83);
  Disk disk{.node = node,
            .name = identity,
            .cabinet = identity.cabinet,
            .device_type = device_type_words(inquiry[0] & 0x1F),
            .vendor = field(inquiry, 8, 8),
            .product = field(inquiry, 16, 16),
            .revision = field(inquiry, 32, 4),
            .controller = controller_of(identity, port),
            .number = device.number(),
            .address = device.address()};
  if (identity.cabinet_error) disk.problems.emplace_back(*identity.cabinet_error);
  ask_access(disk, device, inquiry, port);
  ask_readiness(disk, device);
  constexpr std::uint8_t direct_access = 0;
  if (disk.readiness.ready && (inquiry[0] & 0x1F) == direct_access) ask_capacity(disk, device);
  return disk;
}

/// Devices met so far, by kind and number.
using Met = std::set<std::pair<bool, std::uint64_t>>;

void ask_node(Discovery &found, const std::string &node, Met &met) {
  std::optional<Device> device;
  try {
    device.emplace(node);
    const std::uint64_t number = device->path()->dev;
    if (met.emplace(device->is_block(), number).second) store_disk(survey(*device));
  } catch (const Error &error) {
    Unanswered unanswered{.node = escaped(node), .error = error};
    if (device) {
      unanswered.number = device->number();
      unanswered.address = device->address();
    }
    found.unanswered.push_back(std::move(unanswered));
  }
}

bool is_sound(const std::vector<Path> &paths) {
  return std::ranges::all_of(paths, [](const Path &path) { return path.problems.empty(); });
}

}  // namespace

bool Discovery::is_sound() const {
  return unanswered.empty() && std::ranges::all_of(units, [](const LogicalUnit &unit) {
           return tool::is_sound(unit.multipath_nodes) && tool::is_sound(unit.paths);
         });
}

Discovery discover(const std::vector<std::string> &nodes) {
  create_database();
  Discovery found;
  Met met;
  for (const std::string &node : nodes)
    ask_node(found, node, met);
  link_multipath_names();
  found.units = read_units(nodes);
  return found;
}

Discovery discover_with(const std::vector<std::string> &disks) {
  std::vector<std::string> nodes = disks;
  const std::vector<std::string> host = find_nodes();
  nodes.insert(nodes.end(), host.begin(), host.end());
  return discover(nodes);
}

}  // namespace tool
