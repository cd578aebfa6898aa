#include "tools/discovery.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/bytes.h"
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

/// "port group 1, port 2": the target port that a path leads to, as far as its Device
/// Identification page tells.
std::string port_words(ByteSpan page) {
  constexpr std::uint8_t target_port = 1;  // association
  constexpr std::uint8_t relative_port = 4;
  constexpr std::uint8_t port_group = 5;
  std::string group;
  std::string port;
  for (const Designator &designator : designators(page)) {
    if (designator.association() != target_port || designator.bytes.size() != 4) continue;
    const unsigned number = kzddl::load_be16(designator.bytes.data() + 2);
    if (designator.type() == port_group) group = fmt::format("port group {}", number);
    if (designator.type() == relative_port) port = fmt::format("port {}", number);
  }
  return group + (group.empty() || port.empty() ? "" : ", ") + port;
}

/// The Device Identification page of a path, empty where there is none. A multipath node leads to
/// a port at one time and to another at another.
std::vector<std::uint8_t> port_page(Device &device, const Identity &identity) {
  if (is_multipath(device.path()->devname) || identity.kind == KZDDL_NO_DESIGNATOR) return {};
  try {
    return read_inquiry(device, vpd::device_identification);
  } catch (const Error &) {
    return {};
  }
}

std::optional<AccessPath> access_of(Device &device, ByteSpan inquiry, ByteSpan page) {
  constexpr std::uint8_t has_port_groups = 0x30;
  if (page.empty() || inquiry.size() < 6 || (inquiry[5] & has_port_groups) == 0) return {};
  try {
    return access_path(device, page);
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
  const std::vector<std::uint8_t> page = port_page(device, identity);
  Disk disk{.node = node,
            .identity = identity,
            .device_type = device_type_words(inquiry[0] & 0x1F),
            .vendor = field(inquiry, 8, 8),
            .product = field(inquiry, 16, 16),
            .revision = field(inquiry, 32, 4),
            .controller = port_words(page),
            .number = device.number(),
            .access = access_of(device, inquiry, page),
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
