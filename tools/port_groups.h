// The target port groups of a logical unit: access states in words, and which group is whose.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "tools/device.h"
#include "tools/text.h"
#include "tools/view.h"

namespace tool {

/// One descriptor of a REPORT TARGET PORT GROUPS reply.
struct PortGroup {
  std::uint16_t number = 0;
  std::uint8_t state = 0;
  bool preferred = false;
  std::uint8_t supported = 0;  ///< states, as bits
  std::uint8_t status = 0;     ///< how the state came about
  std::vector<std::uint16_t> ports;
};

/// The groups that the bytes of a reply hold, whatever it announces. A group is there even when
/// some of its ports are not.
struct PortGroups {
  static constexpr std::size_t header_size = 4;

  explicit PortGroups(ByteSpan reply);

  std::vector<PortGroup> groups;
  std::uint64_t announced = header_size;  ///< bytes that the reply says it has
  std::size_t present = 0;                ///< those of them that are here
};

/// The group and the port that a node leads to, as far as its device tells.
struct OwnPort {
  std::optional<unsigned> group{};
  std::optional<unsigned> relative_port{};

  /// "port group 1, port 2"; empty when it tells neither.
  std::string words() const;
};

/// What the way through a port group is like at the moment.
struct AccessPath {
  unsigned group = 0;
  std::optional<std::uint8_t> state = 0;  ///< nothing when the device failed to tell
  bool preferred = false;

  /// The better way comes first, one that is not known last.
  auto rank() const { return std::tuple(!state, state, !preferred, group); }
  /// "active/optimized".
  std::string state_words() const;
  /// "port group 1, active/optimized, preferred".
  std::string words() const;
};

/// "active/optimized".
std::string access_state_words(std::uint8_t state);
/// What access_state_words() says, read back.
std::uint8_t access_state_from_words(std::string_view words);

/// The whole reply as the library reads it: 255 bytes. Throws Error on failure.
std::vector<std::uint8_t> read_port_groups(Device &device);

struct RequestedState {
  std::uint16_t group = 0;
  std::uint8_t state = 0;
};

/// Sends a list of groups and the states they shall have. Throws Error on failure.
void set_port_groups(Device &device, const std::vector<RequestedState> &states);

/// By the node's Device Identification page, which may be empty.
OwnPort own_port(ByteSpan page83);

/// Does standard inquiry data say that the unit has port groups?
bool has_port_groups(ByteSpan inquiry);

/// The state of the group that the node itself is in; nothing when the device has no such groups
/// or does not say which one it is. Throws Error when it fails to tell the state.
std::optional<AccessPath> access_path(Device &device, const OwnPort &own);

/// A table of the groups, the node's own marked; nothing is said of one that is not known.
void show_port_groups(ViewBuilder &view, const PortGroups &reply, const OwnPort &own);

/// A captured reply. Throws Error when it is too short.
View captured_port_groups_view(ByteSpan reply);

}  // namespace tool
