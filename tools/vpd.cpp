#include "tools/vpd.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "base/bytes.h"
#include "kzddl/kzmisc_identity.h"
#include "kzddl/kzmisc_text.h"

namespace tool {
namespace {

constexpr std::size_t designator_header_size = 4;

constexpr Word<std::uint8_t> page_names[] = {
    {0x00, "Supported VPD Pages"},
    {0x80, "Unit Serial Number"},
    {0x83, "Device Identification"},
    {0x84, "Software Interface Identification"},
    {0x85, "Management Network Addresses"},
    {0x86, "Extended INQUIRY Data"},
    {0x87, "Mode Page Policy"},
    {0x88, "SCSI Ports"},
    {0x89, "ATA Information"},
    {0x8A, "Power Condition"},
    {0x8D, "Power Consumption"},
    {0x8F, "Third-party Copy"},
    {0xB0, "Block Limits"},
    {0xB1, "Block Device Characteristics"},
    {0xB2, "Logical Block Provisioning"},
    {0xB3, "Referrals"},
};

constexpr std::string_view associations[] = {"logical unit", "target port", "target device"};

constexpr std::string_view designator_types[] = {
    "vendor specific", "T10 vendor ID", "EUI-64",    "NAA",           "relative port", "port group",
    "unit group",      "MD5",           "SCSI name", "protocol port", "UUID",
};

constexpr std::string_view code_sets[] = {"reserved", "binary", "ASCII", "UTF-8"};

constexpr std::string_view protocols[] = {
    "FCP", "SPI", "SSA", "SBP", "SRP", "iSCSI", "SAS", "ADT", "ATA", "UAS", "SOP", "PCIe",
};

template <std::size_t N>
std::string word(const std::string_view (&words)[N], std::uint8_t code) {
  return code < N ? std::string(words[code]) : fmt::format("reserved {:X}h", code);
}

/// The page as the library reads it: inside its own buffer, and no longer than it is.
std::array<std::uint8_t, 255> library_page(ByteSpan reply) {
  std::array<std::uint8_t, 255> page{};
  const std::size_t size = std::min(reply.size(), page.size());
  std::copy_n(reply.begin(), size, page.begin());
  if (size >= VpdPage::header_size) {
    page[3] =
        static_cast<std::uint8_t>(std::min<std::size_t>(page[3], size - VpdPage::header_size));
  }
  return page;
}

void mark_chosen(ByteSpan reply, std::vector<Designator> &list) {
  const auto page = library_page(reply);
  std::array<char, KZDDL_LUN_ID_SIZE> identifier{};
  unsigned char kind = 0;
  if (get_lun_id_from_83buf(page.data(), identifier.data(), &kind) != 0) return;
  // Ties keep the earlier descriptor: the first that reads so is the one.
  for (Designator &designator : list) {
    std::array<char, KZDDL_LUN_ID_SIZE> text{};
    if (designator.kind != kind || designator.cut_short() ||
        bascii_copy(text.data(), designator.bytes.data(),
                    static_cast<std::int32_t>(designator.bytes.size()), text.size()) != 0 ||
        text != identifier) {
      continue;
    }
    designator.chosen = true;
    return;
  }
}

}  // namespace

VpdPage::VpdPage(ByteSpan reply) {
  if (reply.size() >= 2) code = reply[1];
  if (reply.size() >= header_size) {
    announced = header_size + kzddl::load_be16(reply.data() + 2);
    reply = reply.first(std::min(reply.size(), announced));
    body = reply.subspan(header_size);
  }
  present = reply.size();
}

std::string vpd_page_name(std::uint8_t code) {
  const auto *page = find_code(page_names, code);
  return page ? std::string(page->text) : std::string();
}

bool Designator::is_text() const {
  constexpr std::uint8_t ascii = 2;
  constexpr std::uint8_t utf8 = 3;
  return code_set == ascii || code_set == utf8;
}

std::vector<Designator> designators(ByteSpan reply) {
  std::vector<Designator> list;
  ByteSpan rest = VpdPage(reply).body;
  while (rest.size() >= designator_header_size) {
    Designator &designator = list.emplace_back();
    constexpr std::uint8_t protocol_valid = 0x80;
    if ((rest[1] & protocol_valid) != 0) {
      designator.protocol = static_cast<std::uint8_t>(rest[0] >> 4);
    }
    designator.code_set = rest[0] & 0x0F;
    designator.kind = rest[1];
    designator.announced = rest[3];
    rest = rest.subspan(designator_header_size);
    designator.bytes = rest.first(std::min(rest.size(), designator.announced));
    rest = rest.subspan(designator.bytes.size());
  }
  mark_chosen(reply, list);
  return list;
}

std::string association_words(std::uint8_t association) { return word(associations, association); }

std::string designator_type_words(std::uint8_t type) { return word(designator_types, type); }

std::string code_set_words(std::uint8_t code_set) { return word(code_sets, code_set); }

std::string protocol_words(std::uint8_t protocol) { return word(protocols, protocol); }

std::string identifier_type_words(std::uint8_t kind) {
  return kind == KZDDL_NO_DESIGNATOR ? "name" : designator_type_words(kind & 0x0F);
}

}  // namespace tool
