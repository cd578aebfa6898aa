// What must hold before a disk carries out a command, as the standards (SPC, SBC) table it.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "sim/scsi.h"

namespace sim {

/// How much of a target port group's access a command needs.
enum class Access {
  any,      ///< works in every state
  standby,  ///< does not work through unavailable ports
  medium,   ///< works through active ports alone
};

/// What a command is to another nexus's persistent reservation.
enum class Effect {
  none,    ///< always allowed, or settled by the command itself
  reads,   ///< allowed unless access is exclusive
  writes,  ///< refused
};

struct CommandRule {
  std::uint8_t opcode;
  Access access;
  Effect effect;
  bool needs_ready = false;  ///< refused while the unit is not ready
  bool tells_unit_attentions = true;
};

// clang-format off
inline constexpr std::array command_rules{
    //          operation code                 access           effect          ready  attentions
    CommandRule{opcode::test_unit_ready,        Access::medium,  Effect::none,   true},
    CommandRule{opcode::request_sense,          Access::any,     Effect::none,   false, false},
    CommandRule{opcode::inquiry,                Access::any,     Effect::none,   false, false},
    CommandRule{opcode::mode_select_6,          Access::standby, Effect::writes},
    CommandRule{opcode::mode_sense_6,           Access::standby, Effect::reads},
    CommandRule{opcode::read_capacity_10,       Access::standby, Effect::none,   true},
    CommandRule{opcode::read_10,                Access::medium,  Effect::reads,  true},
    CommandRule{opcode::write_10,               Access::medium,  Effect::writes, true},
    CommandRule{opcode::persistent_reserve_in,  Access::any,     Effect::none},
    CommandRule{opcode::persistent_reserve_out, Access::standby, Effect::none},
    CommandRule{opcode::receive_copy_results,   Access::medium,  Effect::reads},
    CommandRule{opcode::read_16,                Access::medium,  Effect::reads,  true},
    CommandRule{opcode::write_16,               Access::medium,  Effect::writes, true},
    CommandRule{opcode::service_action_in_16,   Access::standby, Effect::none,   true},
    CommandRule{opcode::report_luns,            Access::any,     Effect::none,   false, false},
    CommandRule{opcode::maintenance_in,         Access::any,     Effect::none},
    CommandRule{opcode::maintenance_out,        Access::any,     Effect::writes},
};
// clang-format on

inline CommandRule rule_of(std::uint8_t opcode) {
  const auto found = std::find_if(command_rules.begin(), command_rules.end(),
                                  [opcode](const auto &rule) { return rule.opcode == opcode; });
  return found != command_rules.end() ? *found : CommandRule{opcode, Access::any, Effect::none};
}

}  // namespace sim
