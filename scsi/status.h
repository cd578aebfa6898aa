// SCSI status codes, which reach the library in two forms: the status byte, and the byte without
// its lowest bit.
#pragma once

namespace kzddl {

// Without the lowest bit.
inline constexpr int check_condition = 0x01;
inline constexpr int reservation_conflict = 0x0C;

/// The code of a status byte.
constexpr int status_code(int status_byte) { return (status_byte & 0xFF) >> 1; }

}  // namespace kzddl
