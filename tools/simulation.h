// The simulated host under the tool.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tool {

/// The simulated host that is asked for; what is empty is left to the environment.
struct Simulation {
  std::string array;                     ///< JSON description; empty for the demonstration array
  std::string store;                     ///< directory where units keep their state between runs
  std::string host;                      ///< name of the initiator
  std::optional<std::uint64_t> hostile;  ///< seed with which every device is hostile
};

/// Sees to it that the tool runs on the simulated host: starts itself anew with the host
/// preloaded, unless the environment already asks for it. Throws Error when the host cannot
/// be loaded; real devices are never used in its place.
///
/// @param argv  arguments of main
void enter_simulation(const Simulation &simulation, char **argv);

}  // namespace tool
