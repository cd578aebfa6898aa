#include "sim/disk.h"

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
  Bytes page{0x00, code, static_cast<std::uint8_t>(body.size() >> 8),
             static_cast<std::uint8_t>(body.size())};
  page.insert(page.end(), body.begin(), body.end());
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

}  // namespace

Reply Disk::execute(const Command &command, const Port &port) {
  switch (command.cdb[0]) {
    case opcode::test_unit_ready:
      return spec_.not_ready ? Reply::check_condition(*spec_.not_ready) : Reply{};
    case opcode::inquiry:
      return inquiry(command, port);
    default:
      return Reply::check_condition(invalid_operation_code);
  }
}

Reply Disk::inquiry(const Command &command, const Port &port) const {
  const bool vital_product_data = (command.cdb[1] & 1) != 0;
  const std::uint8_t page = command.cdb[2];
  Bytes data;
  if (!vital_product_data) {
    if (page != 0) return Reply::check_condition(invalid_field_in_cdb);
    data = standard_data();
  } else if (page == page_supported) {
    data = vpd_page(page, supported_pages());
  } else if (page == page_serial && !spec_.serial.empty()) {
    data = vpd_page(page, {spec_.serial.begin(), spec_.serial.end()});
  } else if (page == page_identification) {
    data = vpd_page(page, identification(port));
  } else {
    return Reply::check_condition(invalid_field_in_cdb);
  }
  const std::size_t allocation_length = kzddl::load_be16(command.cdb.data() + 3);
  data.resize(std::min(data.size(), allocation_length));
  return Reply::with(std::move(data));
}

Bytes Disk::standard_data() const {
  constexpr std::size_t size = 96;
  Bytes data{0x00, 0x00, 0x06, 0x12, size - 5, 0x10, 0x00, 0x02};
  append_padded(data, spec_.vendor, 8);
  append_padded(data, spec_.product, 16);
  append_padded(data, spec_.revision, 4);
  data.resize(size);
  return data;
}

Bytes Disk::supported_pages() const {
  Bytes pages{page_supported};
  if (!spec_.serial.empty()) pages.push_back(page_serial);
  pages.push_back(page_identification);
  return pages;
}

Bytes Disk::identification(const Port &port) const {
  Bytes body;
  if (!spec_.naa.empty()) append(body, {binary, 0x03, spec_.naa});
  Bytes t10;
  append_padded(t10, spec_.vendor, 8);
  append_padded(t10, spec_.product, 16);
  t10.insert(t10.end(), spec_.serial.begin(), spec_.serial.end());
  append(body, {ascii, 0x01, t10});
  append(body, {binary, target_port | 0x04, be32(port.relative_id)});
  append(body, {binary, target_port | 0x05, be32(port.group)});
  return body;
}

}  // namespace sim
