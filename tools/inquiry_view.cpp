#include "tools/inquiry_view.h"

#include <fmt/format.h>

#include <string_view>

#include "base/bytes.h"
#include "base/designators.h"
#include "tools/block_pages.h"
#include "tools/inquiry.h"
#include "tools/scsi_words.h"
#include "tools/vpd.h"

namespace tool {
namespace {

// --- standard inquiry data ---

std::string qualifier_words(unsigned qualifier) {
  static constexpr std::string_view words[] = {"connected", "not connected", "reserved",
                                               "no logical unit here"};
  return qualifier < std::size(words) ? std::string(words[qualifier])
                                      : fmt::format("vendor specific {}", qualifier);
}

std::string version_words(std::uint8_t version) {
  static constexpr std::string_view words[] = {"none",  "SCSI-1", "SCSI-2", "SPC",
                                               "SPC-2", "SPC-3",  "SPC-4",  "SPC-5"};
  return version < std::size(words) ? std::string(words[version])
                                    : fmt::format("version {:02X}h", version);
}

std::string tpgs_words(unsigned tpgs) {
  static constexpr std::string_view words[] = {"none", "implicit", "explicit",
                                               "implicit and explicit"};
  return std::string(words[tpgs & 0x03]);
}

struct Feature {
  std::size_t byte;
  std::uint8_t mask;
  std::string_view name;
};

constexpr Feature features[] = {
    {5, 0x80, "SCCS"},    {5, 0x08, "3PC"},    {5, 0x01, "PROTECT"},
    {6, 0x40, "ENCSERV"}, {6, 0x10, "MULTIP"}, {7, 0x02, "CMDQUE"},
};

void add_features(ViewBuilder &view, ByteSpan data) {
  Json names = Json::array();
  std::string text;
  for (const Feature &feature : features) {
    if ((data[feature.byte] & feature.mask) == 0) continue;
    names.push_back(feature.name);
    text += fmt::format("{}{}", text.empty() ? "" : " ", feature.name);
  }
  view.field("Features", "features", text.empty() ? "none" : text, std::move(names));
}

void add_version_descriptors(ViewBuilder &view, ByteSpan data) {
  constexpr std::size_t first = 58;
  constexpr std::size_t end = 74;
  Json codes = Json::array();
  std::string text;
  for (std::size_t at = first; at + 2 <= std::min(end, data.size()); at += 2) {
    const unsigned code = kzddl::load_be16(data.data() + at);
    if (code == 0) continue;
    codes.push_back(code);
    text += fmt::format("{}{:04X}h", text.empty() ? "" : " ", code);
  }
  if (!text.empty()) view.field("Standards", "version_descriptors", text, std::move(codes));
}

void add_peripheral(ViewBuilder &view, std::uint8_t byte) {
  const std::uint8_t type = byte & 0x1F;
  const unsigned qualifier = byte >> 5;
  view.field("Device type", "device_type_name", device_type_words(type));
  view.value("device_type", type);
  view.field("Qualifier", "peripheral_qualifier", qualifier_words(qualifier), qualifier);
}

/// The fields that a reply of this length holds.
void add_standard_fields(ViewBuilder &view, ByteSpan data) {
  const auto reaches = [data](std::size_t end) { return data.size() >= end; };
  const auto add_text = [&](const char *label, const char *key, std::size_t at, std::size_t size) {
    if (reaches(at + size)) view.field(label, key, field_text(data.subspan(at, size)));
  };
  if (reaches(1)) add_peripheral(view, data[0]);
  add_text("Vendor", "vendor", 8, 8);
  add_text("Product", "product", 16, 16);
  add_text("Revision", "revision", 32, 4);
  if (reaches(2)) {
    const bool removable = (data[1] & 0x80) != 0;
    view.field("Removable", "removable", yes_no(removable), removable);
  }
  if (reaches(3)) view.field("Version", "version", version_words(data[2]), data[2]);
  if (reaches(4)) {
    const int format = data[3] & 0x0F;
    view.field("Response format", "response_data_format", std::to_string(format), format);
  }
  if (reaches(6)) {
    const unsigned tpgs = data[5] >> 4 & 0x03;
    view.field("Port groups", "tpgs", tpgs_words(tpgs), tpgs);
  }
  if (reaches(8)) add_features(view, data);
  add_version_descriptors(view, data);
}

// --- VPD pages ---

std::string page_title(const VpdPage &page) {
  const std::string name = vpd_page_name(page.code);
  return fmt::format("{}VPD page {:02X}h, {}", name.empty() ? "" : name + ", ", page.code,
                     counted(page.present, "byte"));
}

void add_supported_pages(ViewBuilder &view, const VpdPage &page) {
  Json codes = Json::array();
  Columns columns;
  std::vector<Columns::Row> rows;
  for (const std::uint8_t code : page.body) {
    codes.push_back(code);
    rows.push_back({fmt::format("{:02X}h", code), vpd_page_name(code)});
    columns.measure(rows.back());
  }
  for (const Columns::Row &row : rows)
    view.append(columns.line(Prefix("  "), row));
  view.value("pages", std::move(codes));
}

void add_serial_number(ViewBuilder &view, const VpdPage &page) {
  view.field("Serial number", "serial_number", field_text(page.body));
  view.value("hex", hex(page.body));
}

/// Ports and groups are numbers, which other commands show in decimal.
bool is_number(const Designator &designator) {
  using Types = kzddl::Designator;
  return designator.type() >= Types::relative_port && designator.type() <= Types::unit_group &&
         designator.bytes.size() == 4;
}

std::string designator_text(const Designator &designator) {
  std::string text = designator.is_text() ? field_text(designator.bytes) : hex(designator.bytes);
  if (is_number(designator))
    text += fmt::format(" ({})", kzddl::load_be32(designator.bytes.data()));
  if (designator.cut_short()) {
    text += fmt::format(" (cut short: {} of {})", designator.bytes.size(),
                        counted(designator.announced, "byte"));
  }
  return text;
}

std::string type_text(const Designator &designator) {
  const std::string type = designator_type_words(designator.type());
  return designator.protocol ? fmt::format("{} ({})", type, protocol_words(*designator.protocol))
                             : type;
}

Columns::Row designator_row(const Designator &designator) {
  return {association_words(designator.association()), type_text(designator),
          code_set_words(designator.code_set), designator_text(designator)};
}

Json designator_json(const Designator &designator) {
  return {
      {"association", association_words(designator.association())},
      {"type", designator_type_words(designator.type())},
      {"type_code", designator.type()},
      {"code_set", code_set_words(designator.code_set)},
      {"protocol", designator.protocol ? Json(protocol_words(*designator.protocol)) : Json()},
      {"text", designator.is_text() ? Json(field_text(designator.bytes)) : Json()},
      {"hex", hex(designator.bytes)},
      {"cut_short", designator.cut_short()},
      {"chosen", designator.chosen},
  };
}

std::string designator_table(const std::vector<Designator> &list) {
  const Columns::Row heads = {"Association", "Type", "Code set", "Designator"};
  Columns columns;
  columns.measure(heads);
  for (const Designator &designator : list)
    columns.measure(designator_row(designator));
  std::string text = columns.line(Prefix("  "), heads);
  for (const Designator &designator : list) {
    text += columns.line({designator.chosen ? "* " : "  ", "  "}, designator_row(designator));
  }
  return text;
}

void add_designators(ViewBuilder &view, ByteSpan reply) {
  const std::vector<Designator> list = designators(reply);
  view.append(list.empty() ? "  No designators.\n" : designator_table(list));
  Json json = Json::array();
  for (const Designator &designator : list)
    json.push_back(designator_json(designator));
  view.value("designators", std::move(json));
}

}  // namespace

View standard_inquiry_view(ByteSpan reply) {
  constexpr std::size_t header_size = standard_inquiry_header_size;
  const std::size_t announced = reply.size() < header_size ? header_size : header_size + reply[4];
  const ByteSpan data = reply.first(std::min(reply.size(), announced));
  ViewBuilder view(fmt::format("Standard inquiry data, {}", counted(data.size(), "byte")));
  view.value("page", "standard");
  view.size(data.size(), announced);
  add_standard_fields(view, data);
  return view.build();
}

View vpd_view(ByteSpan reply) {
  const VpdPage page(reply);
  ViewBuilder view(page_title(page));
  view.value("page", fmt::format("{:02x}", page.code));
  view.value("page_name", vpd_page_name(page.code));
  switch (page.code) {
    case vpd::supported_pages:
      add_supported_pages(view, page);
      break;
    case vpd::unit_serial_number:
      add_serial_number(view, page);
      break;
    case vpd::device_identification:
      add_designators(view, reply);
      break;
    case vpd::block_limits:
      add_block_limits(view, page);
      break;
    case vpd::block_characteristics:
      add_block_characteristics(view, page);
      break;
    case vpd::provisioning:
      add_provisioning(view, page);
      break;
    default:
      view.append(hex_dump(page.body));
      view.value("hex", hex(page.body));
  }
  view.size(page.present, page.announced);
  return view.build();
}

}  // namespace tool
