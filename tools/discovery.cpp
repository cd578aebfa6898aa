#include "tools/discovery.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/bytes.h"
#include "kzddl/kzmisc_identity.h"
#include "tools/device.h"
#include "tools/inquiry.h"
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

/// A multipath node leads to a port at one time and to another at another.
std::string controller_of(Device &device, const Identity &identity) {
  if (is_multipath(device.path()->devname) || identity.kind == KZDDL_NO_DESIGNATOR) return {};
  try {
    return port_words(read_inquiry(device, vpd::device_identification));
  } catch (const Error &) {
    return {};
  }
}

Disk survey(const std::string &node) {
  Device device(node);
  const std::vector<std::uint8_t> inquiry = read_inquiry(device, std::nullopt);
  if (inquiry[0] >> 5 == no_logical_unit) {
    throw Error("inquiry", device.name(), "there is no logical unit at this address");
  }
  const Identity identity = identify_or_name(device);
  return {.node = node,
          .identity = identity,
          .device_type = device_type_words(inquiry[0] & 0x1F),
          .vendor = field(inquiry, 8, 8),
          .product = field(inquiry, 16, 16),
          .revision = field(inquiry, 32, 4),
          .controller = controller_of(device, identity),
          .number = device.number(),
          .readiness = readiness_of(device)};
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

}  // namespace tool
