// What the host has: each node asked who it is, the answers kept in the property database, and
// nodes of one logical unit put together.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/registry.h"

namespace tool {

/// A node that did not say which logical unit it leads to: nobody can say whether it leads to one
/// of the others.
struct Unanswered {
  std::string node;                    ///< escaped
  std::optional<DeviceNumber> number;  ///< nothing when there is no such node
  std::string address;
  Error error;
};

/// Units stand in the order in which they were met.
struct Discovery {
  std::vector<LogicalUnit> units;
  std::vector<Unanswered> unanswered;

  /// Did every node answer every question, and is every one ready?
  bool is_sound() const;
};

/// Asks each node in turn; of several names of one node, the first one's. The property database
/// then holds those that said which unit they lead to, and no others.
Discovery discover(const std::vector<std::string> &nodes);

/// Asks the disks, and the host's other nodes.
Discovery discover_with(const std::vector<std::string> &disks);

}  // namespace tool
