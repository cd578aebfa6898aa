// The multipath driver's side of the interface: its control node and the request that it takes
// there, and the directories of its nodes.
#pragma once

namespace kzddl {

inline constexpr char control_node[] = "/dev/kz/joxconfig";

/// The control node's own request. Its argument is a record that says which device, which request
/// of that device, and that request's argument.
inline constexpr unsigned indirect_request = 0x4A4F5825;

// A node for each logical unit, whichever of its paths is in use.
inline constexpr char block_directory[] = "/dev/kz/jox";
inline constexpr char raw_directory[] = "/dev/kz/rjox";

}  // namespace kzddl
