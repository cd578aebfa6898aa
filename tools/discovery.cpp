#include "tools/discovery.h"

#include <fmt/format.h>

#include <algorithm>

#include "kzddl/kzmisc_identity.h"
#include "tools/capacity.h"
#include "tools/device.h"
#include "tools/inquiry.h"
#include "tools/port_groups.h"
#include "tools/property.h"
#include "tools/scsi_words.h"
#include "tools/vpd.h"

namespace tool {
namespace {

constexpr unsigned no_logical_unit = 3;  // peripheral qualifier

/// A field of standard inquiry data as far as the device sent it.
std::string field(ByteSpan data, std::size_t at, std::size_t size) {
  if (data.size() < at) return {};
  return std::string(trimmed(data.subspan(at, std::min(size, data.size() - at))));
}

Readiness readiness_of(Device &device) {
  try {
    return test_unit_ready(device);
  } catch (const Error &error) {
    return {.ready = false, .reason = error.reason()};
  }
}

/// The target port that a path leads to. A multipath node leads to one at one time and to another
/// at another.
OwnPort port_of(Device &device, const Identity &identity) {
  if (is_multipath(device.path()->devname) || identity.kind == KZDDL_NO_DESIGNATOR) return {};
  try {
    return own_port(read_inquiry(device, vpd::device_identification));
  } catch (const Error &) {
    return {};
  }
}

std::optional<AccessPath> access_of(Device &device, ByteSpan inquiry, const OwnPort &port) {
  constexpr std::uint8_t has_port_groups = 0x30;
  if (inquiry.size() < 6 || (inquiry[5] & has_port_groups) == 0) return {};
  try {
    return access_path(device, port);
  } catch (const Error &) {
    return {};
  }
}

void measure(Disk &disk, Device &device) {
  try {
    const Capacity capacity = read_capacity(device);
    disk.block_size = fmt::format("{}", capacity.block_size);
    if (const auto bytes = capacity.bytes()) disk.capacity = fmt::format("{}", *bytes);
  } catch (const Error &) {
    // A disk without a capacity is one all the same.
  }
}

Disk survey(const std::string &node) {
  Device device(node);
  const std::vector<std::uint8_t> inquiry = read_inquiry(device, std::nullopt);
  if (inquiry[0] >> 5 == no_logical_unit) {
    throw Error("inquiry", device.name(), "there is no logical unit at this address");
  }
  const Identity identity = identify_or_name(device);
  const OwnPort port = port_of(device, identity);
  Disk disk{.node = node,
            .identity = identity,
            .device_type = device_type_words(inquiry[0] & 0x1F),
            .vendor = field(inquiry, 8, 8),
            .product = field(inquiry, 16, 16),
            .revision = field(inquiry, 32, 4),
            .controller = port.words(),
            .number = device.number(),
            .address = device.address(),
            .access = access_of(device, inquiry, port),
            .readiness = readiness_of(device)};
  constexpr std::uint8_t direct_access = 0;
  if (disk.readiness.ready && (inquiry[0] & 0x1F) == direct_access) measure(disk, device);
  return disk;
}

}  // namespace

Discovery discover(const std::vector<std::string> &nodes) {
  create_database();
  Discovery found;
  for (const std::string &node : nodes) {
    try {
      store_disk(survey(node));
    } catch (const Error &error) {
      found.unanswered.push_back({escaped(node), error});
    }
  }
  link_multipath_names();
  found.units = read_units(nodes);
  return found;
}

Discovery discover_with(const std::vector<std::string> &disks) {
  std::vector<std::string> nodes = find_nodes();
  for (const std::string &disk : disks) {
    if (std::find(nodes.begin(), nodes.end(), disk) == nodes.end()) nodes.push_back(disk);
  }
  return discover(nodes);
}

}  // namespace tool
