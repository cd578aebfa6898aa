#include "sim/inquiry.h"

#include <algorithm>

#include "base/bytes.h"

namespace sim {
namespace {

constexpr std::uint8_t page_supported = 0x00;
constexpr std::uint8_t page_serial = 0x80;
constexpr std::uint8_t page_identification = 0x83;

void append_padded(Bytes &data, const std::string &text, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    data.push_back(i < text.size() ? static_cast<std::uint8_t>(text[i]) : ' ');
  }
}

Bytes vpd_page(std::uint8_t code, const Bytes &body) {
  constexpr std::size_t header_size = 4;
  Bytes page(header_size + body.size());
  page[1] = code;
  kzddl::store_be16(&page[2], static_cast<std::uint16_t>(body.size()));
  std::copy(body.begin(), body.end(), page.begin() + header_size);
  return page;
}

/// Code set, association and designator type as they stand in a descriptor's first bytes.
struct Designator {
  std::uint8_t code_set;
  std::uint8_t association_and_type;
  Bytes value;
};

constexpr std::uint8_t binary = 1;
constexpr std::uint8_t ascii = 2;
constexpr std::uint8_t target_port = 0x10;

void append(Bytes &body, const Designator &designator) {
  body.insert(body.end(), {designator.code_set, designator.association_and_type, 0,
                           static_cast<std::uint8_t>(designator.value.size())});
  body.insert(body.end(), designator.value.begin(), designator.value.end());
}

Bytes be32(std::uint32_t value) {
  Bytes bytes(4);
  kzddl::store_be32(bytes.data(), value);
  return bytes;
}

Bytes standard_data(const DiskSpec &spec) {
  constexpr std::size_t size = 96;
  constexpr std::uint8_t third_party_copy = 0x08;
  constexpr std::uint8_t explicit_and_implicit_port_groups = 0x30;
  constexpr std::uint8_t queuing = 0x02;
  Bytes data{0x00, 0x00, 0x06, 0x12, size - 5, 0x00, 0x00, queuing};
  if (spec.copy == CopyParameters::command) data[5] |= third_party_copy;
  if (!spec.groups.empty()) data[5] |= explicit_and_implicit_port_groups;
  append_padded(data, spec.vendor, 8);
  append_padded(data, spec.product, 16);
  append_padded(data, spec.revision, 4);
  data.resize(size);
  return data;
}

bool has_page(const DiskSpec &spec, std::uint8_t page) {
  if (spec.vpd_pages && !spec.vpd_pages->contains(page)) return false;
  return page == page_supported || page == page_identification ||
         (page == page_serial && !spec.serial.empty());
}

Bytes supported_pages(const DiskSpec &spec) {
  Bytes pages{page_supported, page_serial, page_identification};
  std::erase_if(pages, [&spec](std::uint8_t page) { return !has_page(spec, page); });
  return pages;
}

Bytes identification(const DiskSpec &spec, const Port &port) {
  if (spec.designators) return *spec.designators;
  Bytes body;
  if (!spec.naa.empty()) append(body, {binary, 0x03, spec.naa});
  Bytes t10;
  append_padded(t10, spec.vendor, 8);
  append_padded(t10, spec.product, 16);
  t10.insert(t10.end(), spec.serial.begin(), spec.serial.end());
  append(body, {ascii, 0x01, t10});
  append(body, {binary, target_port | 0x04, be32(port.relative_id)});
  append(body, {binary, target_port | 0x05, be32(port.group)});
  return body;
}

}  // namespace

Bytes inquiry_data(const DiskSpec &spec, std::span<const std::uint8_t> cdb, const Port &port) {
  const bool vital_product_data = (cdb[1] & 1) != 0;
  const std::uint8_t page = cdb[2];
  if (!vital_product_data) {
    if (page != 0) refuse(invalid_field_in_cdb);
    return standard_data(spec);
  }
  if (!has_page(spec, page)) refuse(invalid_field_in_cdb);
  switch (page) {
    case page_supported:
      return vpd_page(page, supported_pages(spec));
    case page_serial:
      return vpd_page(page, {spec.serial.begin(), spec.serial.end()});
    default:
      return vpd_page(page, identification(spec, port));
  }
}

}  // namespace sim
