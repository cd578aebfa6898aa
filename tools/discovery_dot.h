// A discovery as a drawing in Graphviz's language.
#pragma once

#include <string>

#include "tools/discovery.h"

namespace tool {

/// From left to right: the host's nodes, and in a frame for each cabinet the port groups that
/// they lead to and the logical units behind those.
std::string discovery_dot(const Discovery &found);

}  // namespace tool
