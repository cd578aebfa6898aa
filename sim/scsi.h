// SCSI terms that the simulated targets use: statuses, operation codes, sense data.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;

namespace status {
inline constexpr std::uint8_t good = 0x00;
inline constexpr std::uint8_t check_condition = 0x02;
inline constexpr std::uint8_t busy = 0x08;
inline constexpr std::uint8_t reservation_conflict = 0x18;
}  // namespace status

namespace opcode {
inline constexpr std::uint8_t test_unit_ready = 0x00;
inline constexpr std::uint8_t inquiry = 0x12;
inline constexpr std::uint8_t mode_sense_6 = 0x1A;
inline constexpr std::uint8_t read_capacity_10 = 0x25;
inline constexpr std::uint8_t persistent_reserve_in = 0x5E;
inline constexpr std::uint8_t receive_copy_results = 0x84;
inline constexpr std::uint8_t service_action_in_16 = 0x9E;
inline constexpr std::uint8_t maintenance_in = 0xA3;
}  // namespace opcode

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
};

inline constexpr Sense invalid_operation_code{0x05, 0x20, 0x00};
inline constexpr Sense invalid_field_in_cdb{0x05, 0x24, 0x00};

/// CDB length by the group of the operation code, as the kernel's legacy request takes it.
inline std::size_t cdb_length(std::uint8_t operation_code) {
  static constexpr std::array<std::size_t, 8> lengths{6, 10, 10, 12, 16, 12, 10, 10};
  return lengths[operation_code >> 5];
}

}  // namespace sim
