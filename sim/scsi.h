// SCSI terms that the simulated targets use: statuses, sense data, lengths of CDBs.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "base/opcode.h"

namespace sim {

using Bytes = std::vector<std::uint8_t>;

namespace status {
inline constexpr std::uint8_t good = 0x00;
inline constexpr std::uint8_t check_condition = 0x02;
inline constexpr std::uint8_t busy = 0x08;
inline constexpr std::uint8_t reservation_conflict = 0x18;
inline constexpr std::uint8_t task_set_full = 0x28;
inline constexpr std::uint8_t task_aborted = 0x40;
}  // namespace status

namespace opcode = kzddl::opcode;

/// Sense key, additional sense code and its qualifier.
struct Sense {
  std::uint8_t key = 0;
  std::uint8_t asc = 0;
  std::uint8_t ascq = 0;

  /// Fixed-format sense data, 18 bytes.
  Bytes fixed() const {
    Bytes data(18);
    data[0] = 0x70;
    data[2] = key;
    data[7] = static_cast<std::uint8_t>(data.size() - 8);
    data[12] = asc;
    data[13] = ascq;
    return data;
  }

  /// Descriptor-format sense data without descriptors, 8 bytes.
  Bytes descriptor() const { return {0x72, key, asc, ascq, 0, 0, 0, 0}; }

  bool operator==(const Sense &) const = default;
};

inline constexpr Sense target_port_in_standby{0x02, 0x04, 0x0B};
inline constexpr Sense target_port_unavailable{0x02, 0x04, 0x0C};
inline constexpr Sense write_error{0x03, 0x0C, 0x00};
inline constexpr Sense unrecovered_read_error{0x03, 0x11, 0x00};
inline constexpr Sense parameter_list_length_error{0x05, 0x1A, 0x00};
inline constexpr Sense invalid_operation_code{0x05, 0x20, 0x00};
inline constexpr Sense lba_out_of_range{0x05, 0x21, 0x00};
inline constexpr Sense invalid_field_in_cdb{0x05, 0x24, 0x00};
inline constexpr Sense invalid_field_in_parameter_list{0x05, 0x26, 0x00};
inline constexpr Sense invalid_release{0x05, 0x26, 0x04};
inline constexpr Sense saving_parameters_not_supported{0x05, 0x39, 0x00};
inline constexpr Sense mode_parameters_changed{0x06, 0x2A, 0x01};
inline constexpr Sense reservations_preempted{0x06, 0x2A, 0x03};
inline constexpr Sense reservations_released{0x06, 0x2A, 0x04};
inline constexpr Sense registrations_preempted{0x06, 0x2A, 0x05};
inline constexpr Sense access_state_changed{0x06, 0x2A, 0x06};
inline constexpr Sense software_write_protected{0x07, 0x27, 0x02};

/// How a command ends that does not end with GOOD. Thrown by the parts of a target; the target
/// makes it the reply.
struct Termination {
  std::uint8_t status = status::check_condition;
  Sense sense{};
};

[[noreturn]] inline void refuse(const Sense &sense) { throw Termination{.sense = sense}; }

[[noreturn]] inline void refuse_with_conflict() {
  throw Termination{.status = status::reservation_conflict};
}

/// CDB length by the group of the operation code, as the kernel's legacy request takes it.
inline std::size_t cdb_length(std::uint8_t operation_code) {
  static constexpr std::array<std::size_t, 8> lengths{6, 10, 10, 12, 16, 12, 10, 10};
  return lengths[operation_code >> 5];
}

}  // namespace sim
