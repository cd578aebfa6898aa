// The target port groups of a simulated disk (SPC, asymmetric logical unit access).
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <vector>

#include "sim/command_rules.h"
#include "sim/disk_spec.h"

namespace sim {

/// Not safe for concurrent use: the disk's mutex guards it.
class PortGroups {
 public:
  explicit PortGroups(const std::vector<TargetPortGroup> &groups);

  /// Without groups the disk knows none of the commands.
  bool empty() const { return groups_.empty(); }

  /// Ends a command whose access the group's state does not give.
  void admit(std::uint16_t group, Access access) const;

  /// The data of REPORT TARGET PORT GROUPS, whole.
  Bytes report() const;

  /// Takes the parameter list of SET TARGET PORT GROUPS: all of it or, when any of it is
  /// refused, nothing. The result says whether a state changed.
  bool set(std::span<const std::uint8_t> list);

  std::vector<TargetPortGroup> list() const;

  /// The states as they are now, and back again: what is kept for other processes.
  nlohmann::json state() const;
  void restore(const nlohmann::json &state);

 private:
  struct Group {
    TargetPortGroup group;
    bool was_set = false;  ///< its state is what SET TARGET PORT GROUPS made it
  };

  std::vector<Group> groups_;
};

}  // namespace sim
