#include "tools/vpd.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "base/bytes.h"
#include "kzddl/ddlts.h"
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

/// Types of designators that may name a unit, the best one first.
constexpr std::uint8_t naming_types[] = {0x3, 0x2, 0xA, 0x8, 0x1, 0x0};

std::ptrdiff_t rank(const Designator &designator) {
  return std::ranges::find(naming_types, designator.type()) - std::begin(naming_types);
}

bool may_name_unit(const Designator &designator) {
  constexpr std::uint8_t logical_unit = 0;
  return designator.association() == logical_unit && rank(designator) < std::ssize(naming_types) &&
         !designator.cut_short() && !identifier_text(designator.bytes).empty();
}

void mark_chosen(std::vector<Designator> &list) {
  Designator *chosen = nullptr;
  for (Designator &designator : list) {
    if (!may_name_unit(designator)) continue;
    if (chosen == nullptr || rank(designator) < rank(*chosen) ||
        (rank(designator) == rank(*chosen) && designator.bytes.size() > chosen->bytes.size())) {
      chosen = &designator;
    }
  }
  if (chosen != nullptr) chosen->chosen = true;
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
  mark_chosen(list);
  return list;
}

std::string identifier_text(ByteSpan designator) {
  if (trimmed(designator).empty()) return {};
  std::array<char, KZDDL_TS_MAX_PAYLOAD + 1> text{};
  const auto size = static_cast<std::int32_t>(designator.size());
  if (bascii_copy(text.data(), designator.data(), size, text.size()) != 0) return {};
  return text.data();
}

std::string association_words(std::uint8_t association) { return word(associations, association); }

std::string designator_type_words(std::uint8_t type) { return word(designator_types, type); }

std::string code_set_words(std::uint8_t code_set) { return word(code_sets, code_set); }

std::string protocol_words(std::uint8_t protocol) { return word(protocols, protocol); }

std::string identifier_type_words(std::uint8_t kind) {
  return kind == KZDDL_NO_DESIGNATOR ? "name" : designator_type_words(kind & 0x0F);
}

}  // namespace tool
