// What the host has: each node asked who it is, the answers kept in the property database, and
// nodes of one logical unit put together.
#pragma once

#include <string>
#include <vector>

#include "tools/error.h"
#include "tools/registry.h"

namespace tool {

/// A node that could not be asked.
struct Unanswered {
  std::string node;  ///< escaped
  Error error;
};

/// Units stand in the order in which they were met.
struct Discovery {
  std::vector<LogicalUnit> units;
  std::vector<Unanswered> unanswered;
};

/// Asks each node in turn. The property database then holds those that answered, and no others.
Discovery discover(const std::vector<std::string> &nodes);

/// Asks the host's nodes, and the disks that are not among them.
Discovery discover_with(const std::vector<std::string> &disks);

}  // namespace tool
