// What must hold before a disk carries out a command, as the standards (SPC, SBC) table it, and
// whom the kernel lets send it.
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

/// Who may send a command: the kernel's list.
enum class Sender {
  anyone,
  writer,      ///< with the node open for writing
  privileged,  ///< CAP_SYS_RAWIO, however the node is open
};

struct CommandRule {
  std::uint8_t opcode;
  Sender sender;
  Access access;
  Effect effect;
  bool needs_ready = false;  ///< refused while the unit is not ready
  bool tells_unit_attentions = true;
};

// clang-format off
inline constexpr std::array command_rules{
    //          operation code                 sender              access           effect          ready  attentions
    CommandRule{opcode::test_unit_ready,        Sender::anyone,     Access::medium,  Effect::none,   true},
    CommandRule{opcode::request_sense,          Sender::anyone,     Access::any,     Effect::none,   false, false},
    CommandRule{opcode::inquiry,                Sender::anyone,     Access::any,     Effect::none,   false, false},
    CommandRule{opcode::mode_select_6,          Sender::writer,     Access::standby, Effect::writes},
    CommandRule{opcode::mode_sense_6,           Sender::anyone,     Access::standby, Effect::reads},
    CommandRule{opcode::read_capacity_10,       Sender::anyone,     Access::standby, Effect::none,   true},
    CommandRule{opcode::read_10,                Sender::anyone,     Access::medium,  Effect::reads,  true},
    CommandRule{opcode::write_10,               Sender::writer,     Access::medium,  Effect::writes, true},
    CommandRule{opcode::persistent_reserve_in,  Sender::privileged, Access::any,     Effect::none},
    CommandRule{opcode::persistent_reserve_out, Sender::privileged, Access::standby, Effect::none},
    CommandRule{opcode::receive_copy_results,   Sender::privileged, Access::medium,  Effect::reads},
    CommandRule{opcode::read_16,                Sender::anyone,     Access::medium,  Effect::reads,  true},
    CommandRule{opcode::write_16,               Sender::writer,     Access::medium,  Effect::writes, true},
    CommandRule{opcode::service_action_in_16,   Sender::anyone,     Access::standby, Effect::none,   true},
    CommandRule{opcode::report_luns,            Sender::anyone,     Access::any,     Effect::none,   false, false},
    CommandRule{opcode::maintenance_in,         Sender::anyone,     Access::any,     Effect::none},
    CommandRule{opcode::maintenance_out,        Sender::anyone,     Access::any,     Effect::writes},
};
// clang-format on

inline CommandRule rule_of(std::uint8_t opcode) {
  const auto found = std::find_if(command_rules.begin(), command_rules.end(),
                                  [opcode](const auto &rule) { return rule.opcode == opcode; });
  return found != command_rules.end()
             ? *found
             : CommandRule{opcode, Sender::privileged, Access::any, Effect::none};
}

}  // namespace sim
