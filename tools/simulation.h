// The simulated host under the tool.
#pragma once

#include <string>

namespace tool {

/// Sees to it that the tool runs on the simulated host: starts itself anew with the host
/// preloaded, unless the environment already asks for it. Throws Error when the host cannot
/// be loaded; real devices are never used in its place.
///
/// @param file  JSON description of the array; empty for the demonstration array
/// @param argv  arguments of main
void enter_simulation(const std::string &file, char **argv);

}  // namespace tool
