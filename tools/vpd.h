// Vital product data pages as a model: only what the given bytes hold, whatever they announce.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/text.h"

namespace tool {

namespace vpd {
inline constexpr std::uint8_t supported_pages = 0x00;
inline constexpr std::uint8_t unit_serial_number = 0x80;
inline constexpr std::uint8_t device_identification = 0x83;
inline constexpr std::uint8_t block_limits = 0xB0;
inline constexpr std::uint8_t block_characteristics = 0xB1;
inline constexpr std::uint8_t provisioning = 0xB2;
}  // namespace vpd

/// A page: its header, and as much of its body as there is.
struct VpdPage {
  static constexpr std::size_t header_size = 4;

  explicit VpdPage(ByteSpan reply);

  std::uint8_t code = 0;
  std::size_t present = 0;              ///< bytes of the page that are here
  std::size_t announced = header_size;  ///< bytes that it says it has
  ByteSpan body{};

  bool cut_short() const { return present < announced; }
};

/// "Device Identification" for a page code; empty for one without a name.
std::string vpd_page_name(std::uint8_t code);

/// One descriptor of the Device Identification page.
struct Designator {
  std::optional<std::uint8_t> protocol{};  ///< when it is valid
  std::uint8_t code_set = 0;
  std::uint8_t kind = 0;  ///< byte 1: PIV, association, designator type
  std::size_t announced = 0;
  ByteSpan bytes{};
  bool chosen = false;  ///< this one names the logical unit

  std::uint8_t association() const { return kind >> 4 & 0x03; }
  std::uint8_t type() const { return kind & 0x0F; }
  bool is_text() const;
  bool cut_short() const { return bytes.size() < announced; }
};

/// The descriptors of a Device Identification page. The one that names the logical unit is marked:
/// of the unit's own designators NAA before EUI-64, UUID, SCSI name, T10 vendor ID and vendor
/// specific; of a kind the longest, else the first. Bytes at the end that are too few for a
/// descriptor's header make none.
std::vector<Designator> designators(ByteSpan reply);

/// A designator as an identifier: text as it is when all of it is printable, else hexadecimal
/// digits. Empty for blanks, and for more than a value of the property database holds.
std::string identifier_text(ByteSpan designator);

/// "logical unit"; "NAA"; "binary"; "SAS".
std::string association_words(std::uint8_t association);
std::string designator_type_words(std::uint8_t type);
std::string code_set_words(std::uint8_t code_set);
std::string protocol_words(std::uint8_t protocol);

/// Byte 1 of the designator that an identifier comes from, in words; "name" for a fallback name.
std::string identifier_type_words(std::uint8_t kind);

}  // namespace tool
