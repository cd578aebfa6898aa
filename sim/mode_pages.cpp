#include "sim/mode_pages.h"

#include <algorithm>
#include <limits>

#include "base/bytes.h"
#include "sim/copy_parameters.h"

namespace sim {
namespace {

constexpr std::uint8_t page_vendor = 0x00;
constexpr std::uint8_t page_format = 0x03;
constexpr std::uint8_t page_geometry = 0x04;
constexpr std::uint8_t page_caching = 0x08;
constexpr std::uint8_t page_control = 0x0A;
constexpr std::uint8_t all_pages = 0x3F;
constexpr std::uint8_t page_code_bits = 0x3F;
constexpr std::uint8_t all_subpages = 0xFF;

enum PageControl { current_values, changeable_values, default_values, saved_values };

constexpr std::size_t header_size = 4;
constexpr std::size_t block_descriptor_size = 8;
constexpr std::size_t page_header_size = 2;

// MODE SENSE, MODE SELECT
constexpr std::uint8_t disable_block_descriptors = 0x08;  // CDB byte 1
constexpr std::uint8_t page_format_bit = 0x10;
constexpr std::uint8_t save_pages = 0x01;
// Device-specific parameter
constexpr std::uint8_t write_protect = 0x80;
constexpr std::uint8_t dpo_fua = 0x10;
// Caching page, byte 2
constexpr std::uint8_t write_cache = 0x04;
constexpr std::uint8_t read_cache_disable = 0x01;
// Control page, bytes 2 and 4
constexpr std::uint8_t d_sense = 0x04;
constexpr std::uint8_t no_implicit_log_save = 0x02;
constexpr std::uint8_t unrestricted_reordering = 0x10;
constexpr std::uint8_t software_write_protect = 0x08;

Bytes page(std::uint8_t code, std::size_t size) {
  Bytes bytes(size);
  bytes[0] = code;
  bytes[1] = static_cast<std::uint8_t>(size - page_header_size);
  return bytes;
}

std::uint32_t bytes_per_sector(const DiskSpec &spec) {
  return spec.geometry->bytes_per_sector.value_or(static_cast<std::uint16_t>(spec.block_size));
}

/// Whole cylinders in the capacity, as many as the page can say.
std::uint32_t cylinders(const DiskSpec &spec) {
  constexpr std::uint64_t largest = 0xFFFFFF;
  constexpr std::uint64_t enough_blocks = std::uint64_t{1} << 48;  // for any geometry's largest
  const Geometry &geometry = *spec.geometry;
  if (geometry.cylinders) return *geometry.cylinders;
  const std::uint64_t cylinder = std::uint64_t{geometry.sectors} * geometry.heads;
  if (cylinder == 0) return 0;
  const std::uint32_t sector = bytes_per_sector(spec);
  const std::uint32_t sectors_per_block = sector == 0 ? 1 : spec.block_size / sector;
  const std::uint64_t sectors = std::min(spec.blocks, enough_blocks) * sectors_per_block;
  return static_cast<std::uint32_t>(std::min(sectors / cylinder, largest));
}

Bytes format_page(const DiskSpec &spec) {
  constexpr std::uint8_t hard_sectors = 0x40;
  Bytes bytes = page(page_format, 24);
  kzddl::store_be16(&bytes[10], spec.geometry->sectors);
  kzddl::store_be16(&bytes[12], static_cast<std::uint16_t>(bytes_per_sector(spec)));
  bytes[20] = hard_sectors;
  return bytes;
}

Bytes geometry_page(const DiskSpec &spec) {
  Bytes bytes = page(page_geometry, 24);
  // Three bytes: the fourth, which is heads, comes after.
  kzddl::store_be32(&bytes[2], cylinders(spec) << 8);
  bytes[5] = spec.geometry->heads;
  kzddl::store_be16(&bytes[20], spec.geometry->rotation_rate);
  return bytes;
}

Bytes block_descriptor_of(const DiskSpec &spec) {
  constexpr std::uint64_t largest = std::numeric_limits<std::uint32_t>::max();
  Bytes bytes(block_descriptor_size);
  kzddl::store_be32(&bytes[0], static_cast<std::uint32_t>(std::min(spec.blocks, largest)));
  kzddl::store_be32(&bytes[4], spec.block_size);  // three bytes and a reserved one before them
  return bytes;
}

void append(Bytes &list, const Bytes &bytes) {
  list.insert(list.end(), bytes.begin(), bytes.end());
}

}  // namespace

ModePages::ModePages(const DiskSpec &spec) : block_descriptor_(block_descriptor_of(spec)) {
  if (spec.answers_page_0) add(page(page_vendor, page_header_size));
  if (spec.geometry) {
    add(format_page(spec));
    add(geometry_page(spec));
  }

  Bytes caching = page(page_caching, 20);
  Bytes caching_bits(caching.size());
  caching_bits[2] = write_cache | read_cache_disable;
  add(std::move(caching), std::move(caching_bits));

  Bytes control = page(page_control, 12);
  control[2] = no_implicit_log_save;
  control[3] = unrestricted_reordering;
  Bytes control_bits(control.size());
  control_bits[2] = d_sense;
  control_bits[4] = software_write_protect;
  add(std::move(control), std::move(control_bits));

  if (spec.copy != CopyParameters::none) {
    const Bytes copy = copy_mode_page();
    add(copy);
    // Copy managers tell their limits as the changeable values too; none can be set.
    pages_.at(copy[0]).changeable = copy;
  }
}

void ModePages::add(Bytes values, Bytes writable) {
  writable.resize(values.size());
  Bytes changeable = writable;
  std::copy_n(values.begin(), page_header_size, changeable.begin());
  const std::uint8_t code = values[0];
  pages_[code] = {.current = values,
                  .defaults = std::move(values),
                  .changeable = std::move(changeable),
                  .writable = std::move(writable)};
}

Bytes ModePages::sense(std::span<const std::uint8_t> cdb) const {
  const auto control = static_cast<PageControl>(cdb[2] >> 6);
  const std::uint8_t code = cdb[2] & page_code_bits;
  const std::uint8_t subpage = cdb[3];
  if (control == saved_values) refuse(saving_parameters_not_supported);
  if (subpage != 0 && subpage != all_subpages) refuse(invalid_field_in_cdb);

  Bytes list(header_size);
  list[2] = static_cast<std::uint8_t>(dpo_fua | (write_protected() ? write_protect : 0));
  if ((cdb[1] & disable_block_descriptors) == 0) {
    list[3] = block_descriptor_size;
    append(list, block_descriptor_);
  }
  const auto append_page = [&list, control](const Page &page) {
    append(list, control == current_values      ? page.current
                 : control == changeable_values ? page.changeable
                                                : page.defaults);
  };
  const auto named = pages_.find(code == all_pages ? page_vendor : code);
  if (code == all_pages) {
    for (auto page = pages_.upper_bound(page_vendor); page != pages_.end(); ++page) {
      append_page(page->second);
    }
  } else if (named == pages_.end()) {
    refuse(invalid_field_in_cdb);
  }
  if (named != pages_.end()) append_page(named->second);  // page 0 comes after all others
  list[0] = static_cast<std::uint8_t>(list.size() - 1);
  return list;
}

bool ModePages::select(std::span<const std::uint8_t> cdb, std::span<const std::uint8_t> list) {
  if ((cdb[1] & page_format_bit) == 0 || (cdb[1] & save_pages) != 0) refuse(invalid_field_in_cdb);
  if (list.empty()) return false;
  if (list.size() < header_size) refuse(parameter_list_length_error);
  const std::size_t descriptors = list[3];
  if (descriptors != 0 && descriptors != block_descriptor_size) {
    refuse(invalid_field_in_parameter_list);
  }
  if (list.size() < header_size + descriptors) refuse(parameter_list_length_error);
  if (!std::ranges::equal(list.subspan(header_size, descriptors),
                          std::span(block_descriptor_).first(descriptors))) {
    refuse(invalid_field_in_parameter_list);  // the medium keeps its format
  }

  auto updated = pages_;
  bool changed = false;
  for (auto rest = list.subspan(header_size + descriptors); !rest.empty();) {
    if (rest.size() < page_header_size) refuse(parameter_list_length_error);
    const auto page = updated.find(rest[0]);
    if (page == updated.end() || rest[1] != page->second.current[1]) {
      refuse(invalid_field_in_parameter_list);
    }
    Bytes &current = page->second.current;
    if (rest.size() < current.size()) refuse(parameter_list_length_error);
    for (std::size_t i = 0; i < current.size(); ++i) {
      const auto difference = static_cast<std::uint8_t>(current[i] ^ rest[i]);
      if ((difference & ~page->second.writable[i]) != 0) refuse(invalid_field_in_parameter_list);
      changed = changed || difference != 0;
      current[i] = rest[i];
    }
    rest = rest.subspan(current.size());
  }
  pages_ = std::move(updated);
  return changed;
}

bool ModePages::descriptor_sense() const {
  return (pages_.at(page_control).current[2] & d_sense) != 0;
}

bool ModePages::write_protected() const {
  return (pages_.at(page_control).current[4] & software_write_protect) != 0;
}

}  // namespace sim
