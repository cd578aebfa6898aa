#include "tools/scsi_words.h"

#include <fmt/format.h>

#include <array>
#include <iterator>
#include <string_view>

namespace tool {
namespace {

constexpr Word<std::uint8_t> statuses[] = {
    {0x00, "GOOD"},
    {0x02, "CHECK CONDITION"},
    {0x04, "CONDITION MET"},
    {0x08, "BUSY"},
    {0x10, "INTERMEDIATE"},
    {0x14, "INTERMEDIATE-CONDITION MET"},
    {0x18, "RESERVATION CONFLICT"},
    {0x22, "COMMAND TERMINATED"},
    {0x28, "TASK SET FULL"},
    {0x30, "ACA ACTIVE"},
    {0x40, "TASK ABORTED"},
};

constexpr std::array<std::string_view, 16> sense_keys = {
    "NO SENSE",       "RECOVERED ERROR", "NOT READY",      "MEDIUM ERROR",
    "HARDWARE ERROR", "ILLEGAL REQUEST", "UNIT ATTENTION", "DATA PROTECT",
    "BLANK CHECK",    "VENDOR SPECIFIC", "COPY ABORTED",   "ABORTED COMMAND",
    "RESERVED",       "VOLUME OVERFLOW", "MISCOMPARE",     "COMPLETED",
};

/// Additional sense codes, ASC in the high byte and ASCQ in the low one, as SPC words them.
constexpr Word<std::uint16_t> additional_senses[] = {
    {0x0000, "NO ADDITIONAL SENSE INFORMATION"},
    {0x0016, "OPERATION IN PROGRESS"},
    {0x001D, "ATA PASS THROUGH INFORMATION AVAILABLE"},
    {0x0200, "NO SEEK COMPLETE"},
    {0x0300, "PERIPHERAL DEVICE WRITE FAULT"},
    {0x0400, "LOGICAL UNIT NOT READY, CAUSE NOT REPORTABLE"},
    {0x0401, "LOGICAL UNIT IS IN PROCESS OF BECOMING READY"},
    {0x0402, "LOGICAL UNIT NOT READY, INITIALIZING COMMAND REQUIRED"},
    {0x0403, "LOGICAL UNIT NOT READY, MANUAL INTERVENTION REQUIRED"},
    {0x0404, "LOGICAL UNIT NOT READY, FORMAT IN PROGRESS"},
    {0x0405, "LOGICAL UNIT NOT READY, REBUILD IN PROGRESS"},
    {0x0406, "LOGICAL UNIT NOT READY, RECALCULATION IN PROGRESS"},
    {0x0407, "LOGICAL UNIT NOT READY, OPERATION IN PROGRESS"},
    {0x0408, "LOGICAL UNIT NOT READY, LONG WRITE IN PROGRESS"},
    {0x0409, "LOGICAL UNIT NOT READY, SELF-TEST IN PROGRESS"},
    {0x040A, "LOGICAL UNIT NOT ACCESSIBLE, ASYMMETRIC ACCESS STATE TRANSITION"},
    {0x040B, "LOGICAL UNIT NOT ACCESSIBLE, TARGET PORT IN STANDBY STATE"},
    {0x040C, "LOGICAL UNIT NOT ACCESSIBLE, TARGET PORT IN UNAVAILABLE STATE"},
    {0x0411, "LOGICAL UNIT NOT READY, NOTIFY (ENABLE SPINUP) REQUIRED"},
    {0x0412, "LOGICAL UNIT NOT READY, OFFLINE"},
    {0x0414, "LOGICAL UNIT NOT READY, SPACE ALLOCATION IN PROGRESS"},
    {0x041A, "LOGICAL UNIT NOT READY, START STOP UNIT COMMAND IN PROGRESS"},
    {0x041B, "LOGICAL UNIT NOT READY, SANITIZE IN PROGRESS"},
    {0x0500, "LOGICAL UNIT DOES NOT RESPOND TO SELECTION"},
    {0x0800, "LOGICAL UNIT COMMUNICATION FAILURE"},
    {0x0801, "LOGICAL UNIT COMMUNICATION TIME-OUT"},
    {0x0802, "LOGICAL UNIT COMMUNICATION PARITY ERROR"},
    {0x0900, "TRACK FOLLOWING ERROR"},
    {0x0B00, "WARNING"},
    {0x0B01, "WARNING - SPECIFIED TEMPERATURE EXCEEDED"},
    {0x0C00, "WRITE ERROR"},
    {0x0C02, "WRITE ERROR - AUTO REALLOCATION FAILED"},
    {0x0D00, "ERROR DETECTED BY THIRD PARTY TEMPORARY INITIATOR"},
    {0x0D02, "COPY TARGET DEVICE NOT REACHABLE"},
    {0x0E00, "INVALID INFORMATION UNIT"},
    {0x1000, "ID CRC OR ECC ERROR"},
    {0x1001, "LOGICAL BLOCK GUARD CHECK FAILED"},
    {0x1002, "LOGICAL BLOCK APPLICATION TAG CHECK FAILED"},
    {0x1003, "LOGICAL BLOCK REFERENCE TAG CHECK FAILED"},
    {0x1100, "UNRECOVERED READ ERROR"},
    {0x1104, "UNRECOVERED READ ERROR - AUTO REALLOCATE FAILED"},
    {0x1400, "RECORDED ENTITY NOT FOUND"},
    {0x1500, "RANDOM POSITIONING ERROR"},
    {0x1700, "RECOVERED DATA WITH NO ERROR CORRECTION APPLIED"},
    {0x1800, "RECOVERED DATA WITH ERROR CORRECTION APPLIED"},
    {0x1A00, "PARAMETER LIST LENGTH ERROR"},
    {0x1B00, "SYNCHRONOUS DATA TRANSFER ERROR"},
    {0x1D00, "MISCOMPARE DURING VERIFY OPERATION"},
    {0x2000, "INVALID COMMAND OPERATION CODE"},
    {0x2001, "ACCESS DENIED - INITIATOR PENDING-ENROLLED"},
    {0x2002, "ACCESS DENIED - NO ACCESS RIGHTS"},
    {0x2100, "LOGICAL BLOCK ADDRESS OUT OF RANGE"},
    {0x2400, "INVALID FIELD IN CDB"},
    {0x2401, "CDB DECRYPTION ERROR"},
    {0x2500, "LOGICAL UNIT NOT SUPPORTED"},
    {0x2600, "INVALID FIELD IN PARAMETER LIST"},
    {0x2601, "PARAMETER NOT SUPPORTED"},
    {0x2602, "PARAMETER VALUE INVALID"},
    {0x2603, "THRESHOLD PARAMETERS NOT SUPPORTED"},
    {0x2604, "INVALID RELEASE OF PERSISTENT RESERVATION"},
    {0x2606, "TOO MANY TARGET DESCRIPTORS"},
    {0x2607, "UNSUPPORTED TARGET DESCRIPTOR TYPE CODE"},
    {0x2608, "TOO MANY SEGMENT DESCRIPTORS"},
    {0x2609, "UNSUPPORTED SEGMENT DESCRIPTOR TYPE CODE"},
    {0x260A, "UNEXPECTED INEXACT SEGMENT"},
    {0x260B, "INLINE DATA LENGTH EXCEEDED"},
    {0x260C, "INVALID OPERATION FOR COPY SOURCE OR DESTINATION"},
    {0x260D, "COPY SEGMENT GRANULARITY VIOLATION"},
    {0x2700, "WRITE PROTECTED"},
    {0x2701, "HARDWARE WRITE PROTECTED"},
    {0x2702, "LOGICAL UNIT SOFTWARE WRITE PROTECTED"},
    {0x2707, "SPACE ALLOCATION FAILED WRITE PROTECT"},
    {0x2800, "NOT READY TO READY CHANGE, MEDIUM MAY HAVE CHANGED"},
    {0x2801, "IMPORT OR EXPORT ELEMENT ACCESSED"},
    {0x2900, "POWER ON, RESET, OR BUS DEVICE RESET OCCURRED"},
    {0x2901, "POWER ON OCCURRED"},
    {0x2902, "SCSI BUS RESET OCCURRED"},
    {0x2903, "BUS DEVICE RESET FUNCTION OCCURRED"},
    {0x2904, "DEVICE INTERNAL RESET"},
    {0x2905, "TRANSCEIVER MODE CHANGED TO SINGLE-ENDED"},
    {0x2906, "TRANSCEIVER MODE CHANGED TO LVD"},
    {0x2907, "I_T NEXUS LOSS OCCURRED"},
    {0x2A00, "PARAMETERS CHANGED"},
    {0x2A01, "MODE PARAMETERS CHANGED"},
    {0x2A02, "LOG PARAMETERS CHANGED"},
    {0x2A03, "RESERVATIONS PREEMPTED"},
    {0x2A04, "RESERVATIONS RELEASED"},
    {0x2A05, "REGISTRATIONS PREEMPTED"},
    {0x2A06, "ASYMMETRIC ACCESS STATE CHANGED"},
    {0x2A07, "IMPLICIT ASYMMETRIC ACCESS STATE TRANSITION FAILED"},
    {0x2A08, "PRIORITY CHANGED"},
    {0x2A09, "CAPACITY DATA HAS CHANGED"},
    {0x2A0A, "ERROR HISTORY I_T NEXUS CLEARED"},
    {0x2A0B, "ERROR HISTORY SNAPSHOT RELEASED"},
    {0x2A10, "TIMESTAMP CHANGED"},
    {0x2C00, "COMMAND SEQUENCE ERROR"},
    {0x2C09, "PREVIOUS RESERVATION CONFLICT STATUS"},
    {0x2F00, "COMMANDS CLEARED BY ANOTHER INITIATOR"},
    {0x2F01, "COMMANDS CLEARED BY POWER LOSS NOTIFICATION"},
    {0x2F02, "COMMANDS CLEARED BY DEVICE SERVER"},
    {0x3000, "INCOMPATIBLE MEDIUM INSTALLED"},
    {0x3100, "MEDIUM FORMAT CORRUPTED"},
    {0x3101, "FORMAT COMMAND FAILED"},
    {0x3200, "NO DEFECT SPARE LOCATION AVAILABLE"},
    {0x3500, "ENCLOSURE SERVICES FAILURE"},
    {0x3700, "ROUNDED PARAMETER"},
    {0x3807, "THIN PROVISIONING SOFT THRESHOLD REACHED"},
    {0x3900, "SAVING PARAMETERS NOT SUPPORTED"},
    {0x3A00, "MEDIUM NOT PRESENT"},
    {0x3A01, "MEDIUM NOT PRESENT - TRAY CLOSED"},
    {0x3A02, "MEDIUM NOT PRESENT - TRAY OPEN"},
    {0x3D00, "INVALID BITS IN IDENTIFY MESSAGE"},
    {0x3E00, "LOGICAL UNIT HAS NOT SELF-CONFIGURED YET"},
    {0x3E01, "LOGICAL UNIT FAILURE"},
    {0x3E02, "TIMEOUT ON LOGICAL UNIT"},
    {0x3F00, "TARGET OPERATING CONDITIONS HAVE CHANGED"},
    {0x3F01, "MICROCODE HAS BEEN CHANGED"},
    {0x3F02, "CHANGED OPERATING DEFINITION"},
    {0x3F03, "INQUIRY DATA HAS CHANGED"},
    {0x3F04, "COMPONENT DEVICE ATTACHED"},
    {0x3F05, "DEVICE IDENTIFIER CHANGED"},
    {0x3F06, "REDUNDANCY GROUP CREATED OR MODIFIED"},
    {0x3F07, "REDUNDANCY GROUP DELETED"},
    {0x3F08, "SPARE CREATED OR MODIFIED"},
    {0x3F09, "SPARE DELETED"},
    {0x3F0A, "VOLUME SET CREATED OR MODIFIED"},
    {0x3F0B, "VOLUME SET DELETED"},
    {0x3F0C, "VOLUME SET DEASSIGNED"},
    {0x3F0D, "VOLUME SET REASSIGNED"},
    {0x3F0E, "REPORTED LUNS DATA HAS CHANGED"},
    {0x3F0F, "ECHO BUFFER OVERWRITTEN"},
    {0x4300, "MESSAGE ERROR"},
    {0x4400, "INTERNAL TARGET FAILURE"},
    {0x4500, "SELECT OR RESELECT FAILURE"},
    {0x4700, "SCSI PARITY ERROR"},
    {0x4703, "INFORMATION UNIT iuCRC ERROR DETECTED"},
    {0x4800, "INITIATOR DETECTED ERROR MESSAGE RECEIVED"},
    {0x4900, "INVALID MESSAGE ERROR"},
    {0x4A00, "COMMAND PHASE ERROR"},
    {0x4B00, "DATA PHASE ERROR"},
    {0x4C00, "LOGICAL UNIT FAILED SELF-CONFIGURATION"},
    {0x4E00, "OVERLAPPED COMMANDS ATTEMPTED"},
    {0x5302, "MEDIUM REMOVAL PREVENTED"},
    {0x5500, "SYSTEM RESOURCE FAILURE"},
    {0x5502, "INSUFFICIENT RESERVATION RESOURCES"},
    {0x5503, "INSUFFICIENT RESOURCES"},
    {0x5504, "INSUFFICIENT REGISTRATION RESOURCES"},
    {0x5D00, "FAILURE PREDICTION THRESHOLD EXCEEDED"},
    {0x5E00, "LOW POWER CONDITION ON"},
};

constexpr Word<unsigned> host_statuses[] = {
    {0x01, "no connection to the device"},
    {0x02, "the bus stayed busy"},
    {0x03, "timed out"},
    {0x04, "bad target"},
    {0x05, "aborted"},
    {0x06, "parity error"},
    {0x07, "internal error of the host adapter"},
    {0x08, "bus reset"},
    {0x09, "unexpected interrupt"},
    {0x0A, "driver forced the command through"},
    {0x0B, "soft error"},
    {0x0C, "to be retried at once"},
    {0x0D, "to be queued again"},
    {0x0E, "transport disrupted"},
    {0x0F, "transport failed fast"},
    {0x10, "permanent failure of the target"},
    {0x11, "permanent failure of the path"},
    {0x12, "no space left on the device"},
    {0x13, "medium error"},
    {0x14, "transport marginal"},
};

constexpr std::string_view device_types[] = {
    "direct access block device",
    "sequential access device",
    "printer",
    "processor",
    "write once device",
    "CD/DVD device",
    "scanner",
    "optical memory device",
    "medium changer",
    "communications device",
    "",
    "",
    "storage array controller",
    "enclosure services device",
    "simplified direct access device",
    "optical card reader/writer",
    "bridge controller commands",
    "object-based storage device",
    "automation/drive interface",
    "security manager device",
    "host managed zoned block device",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "well known logical unit",
    "unknown or no device type",
};

/// Fields of sense data at the offsets of their format; what lies past the end reads as 0.
Sense sense_at(ByteSpan data, std::size_t key, std::size_t asc, std::size_t ascq) {
  const auto byte = [data](std::size_t at) -> std::uint8_t {
    return at < data.size() ? data[at] : 0;
  };
  return {.key = static_cast<std::uint8_t>(byte(key) & 0x0F), .asc = byte(asc), .ascq = byte(ascq)};
}

}  // namespace

std::string scsi_status_words(std::uint8_t status) {
  const auto *word = find_code(statuses, status);
  return word ? std::string(word->text) : fmt::format("SCSI status {:02X}h", status);
}

std::string sense_key_words(std::uint8_t key) { return std::string(sense_keys[key & 0x0F]); }

std::string additional_sense_words(std::uint8_t asc, std::uint8_t ascq) {
  const auto *word = find_code(additional_senses, static_cast<std::uint16_t>(asc << 8 | ascq));
  return word ? std::string(word->text) : fmt::format("ASC {:02X} ASCQ {:02X}", asc, ascq);
}

std::optional<Sense> parse_sense(ByteSpan data) {
  if (data.size() < 3) return std::nullopt;
  Sense sense;
  switch (data[0] & 0x7F) {
    case 0x70:
    case 0x71:
      sense = sense_at(data, 2, 12, 13);
      break;
    case 0x72:
    case 0x73:
      sense = sense_at(data, 1, 2, 3);
      break;
    default:
      return std::nullopt;
  }
  sense.deferred = (data[0] & 0x01) != 0;
  return sense;
}

bool is_unsupported(const Sense &sense) {
  constexpr std::uint8_t invalid_operation_code = 0x20;
  constexpr std::uint8_t invalid_field_in_cdb = 0x24;
  return sense.key == sense_key::illegal_request && !sense.deferred &&
         (sense.asc == invalid_operation_code || sense.asc == invalid_field_in_cdb);
}

std::string sense_words(const Sense &sense) {
  return fmt::format("{}{}: {}", sense.deferred ? "deferred " : "", sense_key_words(sense.key),
                     additional_sense_words(sense.asc, sense.ascq));
}

std::string host_status_words(unsigned status) {
  const auto *word = find_code(host_statuses, status);
  return word ? std::string(word->text) : fmt::format("host or driver status {:02X}h", status);
}

std::string combined_status_words(unsigned combined) {
  // The masked status is the SCSI status shifted right by one; with sense data the driver status
  // is 8. Those come first: host errors share their low values.
  constexpr unsigned driver_sense = 0x08;
  constexpr unsigned check_condition = scsi_status::check_condition >> 1;
  if (combined == (check_condition | driver_sense)) return "CHECK CONDITION";
  for (const std::uint8_t status : {0x08, 0x18, 0x28, 0x30, 0x40}) {
    if (combined == status >> 1U) return scsi_status_words(status);
  }
  return host_status_words(combined);
}

std::string device_type_words(std::uint8_t type) {
  const std::string_view text = type < std::size(device_types) ? device_types[type] : "";
  return text.empty() ? fmt::format("device type {:02X}h", type) : std::string(text);
}

}  // namespace tool
