// Names of logical units for the multipath node directories: one for each unit, made from its
// identifier, and the best of its paths.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/port_groups.h"

namespace control {

/// An identifier as a file name: letters, digits, '.', '-', '+', ':' and '@' stand for themselves,
/// any other byte is '_' and two hexadecimal digits. Different identifiers get different names.
std::string file_name(std::string_view identifier);

/// One way to a unit.
struct UnitPath {
  std::string unit;   ///< the unit's name
  std::string block;  ///< "/dev/sda"
  std::string raw;    ///< "/dev/sg0"; empty where the host has no such node
  tool::AccessPath access{};
};

/// A unit's name, and the node that stands for it.
using NodeNames = std::map<std::string, std::string>;

struct UnitNodes {
  NodeNames block;
  NodeNames raw;
};

/// The nodes of each unit's best path: by the state of its port group, then in the order of
/// `paths`.
UnitNodes choose_nodes(const std::vector<UnitPath> &paths);

}  // namespace control
