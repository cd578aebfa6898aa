// SCSI codes, and in words: statuses, sense data, and what the host's adapters report.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/opcode.h"
#include "tools/text.h"

namespace tool {

namespace scsi_status {
inline constexpr std::uint8_t good = 0x00;
inline constexpr std::uint8_t check_condition = 0x02;
inline constexpr std::uint8_t reservation_conflict = 0x18;
}  // namespace scsi_status

namespace opcode = kzddl::opcode;

namespace sense_key {
inline constexpr std::uint8_t not_ready = 0x02;
inline constexpr std::uint8_t illegal_request = 0x05;
inline constexpr std::uint8_t unit_attention = 0x06;
}  // namespace sense_key

/// "CHECK CONDITION" for a SCSI status byte.
std::string scsi_status_words(std::uint8_t status);

/// "NOT READY".
std::string sense_key_words(std::uint8_t key);

/// "LOGICAL UNIT NOT SUPPORTED"; "ASC xx ASCQ xx" for one that is not in the list.
std::string additional_sense_words(std::uint8_t asc, std::uint8_t ascq);

/// What sense data say.
struct Sense {
  std::uint8_t key = 0;
  std::uint8_t asc = 0;
  std::uint8_t ascq = 0;
  bool deferred = false;  ///< about an earlier command
};

/// Reads sense data of fixed or descriptor format; nothing when there are none, or of no known
/// format. Codes that the data are too short for are 0.
std::optional<Sense> parse_sense(ByteSpan data);

/// Does the device refuse a command, or a page, that it does not know?
bool is_unsupported(const Sense &sense);

/// "ILLEGAL REQUEST: INVALID FIELD IN CDB".
std::string sense_words(const Sense &sense);

/// "no connection to the device" for the kernel's host status.
std::string host_status_words(unsigned status);

/// For the OR of host, masked and driver status, where nothing else is known.
std::string combined_status_words(unsigned combined);

/// "direct access block device" for a peripheral device type.
std::string device_type_words(std::uint8_t type);

}  // namespace tool
