// Operation codes: the first byte of a CDB.
#pragma once

#include <cstdint>

namespace kzddl {

namespace opcode {
inline constexpr std::uint8_t test_unit_ready = 0x00;
inline constexpr std::uint8_t request_sense = 0x03;
inline constexpr std::uint8_t inquiry = 0x12;
inline constexpr std::uint8_t mode_select_6 = 0x15;
inline constexpr std::uint8_t mode_sense_6 = 0x1A;
inline constexpr std::uint8_t read_capacity_10 = 0x25;
inline constexpr std::uint8_t read_10 = 0x28;
inline constexpr std::uint8_t write_10 = 0x2A;
inline constexpr std::uint8_t persistent_reserve_in = 0x5E;
inline constexpr std::uint8_t persistent_reserve_out = 0x5F;
inline constexpr std::uint8_t receive_copy_results = 0x84;
inline constexpr std::uint8_t read_16 = 0x88;
inline constexpr std::uint8_t write_16 = 0x8A;
inline constexpr std::uint8_t service_action_in_16 = 0x9E;
inline constexpr std::uint8_t report_luns = 0xA0;
inline constexpr std::uint8_t maintenance_in = 0xA3;
inline constexpr std::uint8_t maintenance_out = 0xA4;
}  // namespace opcode

}  // namespace kzddl
