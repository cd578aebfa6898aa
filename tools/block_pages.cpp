#include "tools/block_pages.h"

#include <fmt/format.h>

#include <string_view>

#include "base/bytes.h"

namespace tool {
namespace {

/// A number of the Block Limits page; 0 says nothing.
struct Limit {
  const char *label;
  const char *key;
  std::size_t offset;
  std::size_t size;
  const char *unit;
};

constexpr Limit limits[] = {
    {"Maximum transfer", "maximum_transfer_length", 8, 4, "block"},
    {"Optimal transfer", "optimal_transfer_length", 12, 4, "block"},
    {"Transfer granularity", "optimal_transfer_length_granularity", 6, 2, "block"},
    {"Maximum prefetch", "maximum_prefetch_length", 16, 4, "block"},
    {"Maximum COMPARE AND WRITE", "maximum_compare_and_write_length", 5, 1, "block"},
    {"Maximum WRITE SAME", "maximum_write_same_length", 36, 8, "block"},
    {"Maximum UNMAP", "maximum_unmap_lba_count", 20, 4, "block"},
    {"Ranges of an UNMAP", "maximum_unmap_block_descriptor_count", 24, 4, "range"},
    {"UNMAP granularity", "optimal_unmap_granularity", 28, 4, "block"},
};

struct Flag {
  const char *label;
  const char *key;
  std::size_t offset;
  std::uint8_t mask;
};

constexpr Flag provisioning_flags[] = {
    {"UNMAP", "lbpu", 5, 0x80},
    {"WRITE SAME(16) unmaps", "lbpws", 5, 0x40},
    {"WRITE SAME(10) unmaps", "lbpws10", 5, 0x20},
    {"Unmapped blocks are zero", "lbprz", 5, 0x04},
    {"Anchored blocks", "anc_sup", 5, 0x02},
};

/// The bytes at `offset` of the page, header included; empty where it ends before them.
ByteSpan bytes_at(const VpdPage &page, std::size_t offset, std::size_t size) {
  const std::size_t at = offset - VpdPage::header_size;
  return page.body.size() >= at + size ? page.body.subspan(at, size) : ByteSpan();
}

std::uint64_t number(ByteSpan bytes) {
  std::uint64_t value = 0;
  for (const std::uint8_t byte : bytes)
    value = value << 8 | byte;
  return value;
}

std::string limit_text(std::uint64_t value, const char *unit) {
  return value == 0 ? "not reported" : counted(value, unit);
}

void add_flag(ViewBuilder &view, const VpdPage &page, const Flag &flag) {
  const ByteSpan byte = bytes_at(page, flag.offset, 1);
  if (byte.empty()) return;
  const bool set = (byte[0] & flag.mask) != 0;
  view.field(flag.label, flag.key, yes_no(set), set);
}

std::string rotation_text(unsigned rate) {
  if (rate == 0) return "not reported";
  if (rate == 1) return "none: not a rotating medium";
  return fmt::format("{} revolutions a minute", rate);
}

std::string form_factor_text(unsigned code) {
  static constexpr std::string_view words[] = {"not reported", "5.25 inch", "3.5 inch",
                                               "2.5 inch",     "1.8 inch",  "less than 1.8 inch"};
  return code < std::size(words) ? std::string(words[code]) : fmt::format("code {:X}h", code);
}

std::string zoned_text(unsigned code) {
  static constexpr std::string_view words[] = {"not reported", "host aware",
                                               "managed by the device", "code 3"};
  return std::string(words[code & 0x03]);
}

std::string provisioning_text(unsigned type) {
  static constexpr std::string_view words[] = {"full, or not reported", "resource", "thin"};
  return type < std::size(words) ? std::string(words[type]) : fmt::format("type {}", type);
}

}  // namespace

void add_block_limits(ViewBuilder &view, const VpdPage &page) {
  for (const Limit &limit : limits) {
    const ByteSpan bytes = bytes_at(page, limit.offset, limit.size);
    if (bytes.empty()) continue;
    const std::uint64_t value = number(bytes);
    view.field(limit.label, limit.key, limit_text(value, limit.unit), value);
  }
}

void add_block_characteristics(ViewBuilder &view, const VpdPage &page) {
  if (const ByteSpan bytes = bytes_at(page, 4, 2); !bytes.empty()) {
    const unsigned rate = kzddl::load_be16(bytes.data());
    view.field("Rotation", "medium_rotation_rate", rotation_text(rate), rate);
  }
  if (const ByteSpan byte = bytes_at(page, 7, 1); !byte.empty()) {
    const unsigned code = byte[0] & 0x0F;
    view.field("Form factor", "nominal_form_factor", form_factor_text(code), code);
  }
  if (const ByteSpan byte = bytes_at(page, 8, 1); !byte.empty()) {
    const unsigned code = byte[0] >> 4 & 0x03;
    view.field("Zones", "zoned", zoned_text(code), code);
  }
}

void add_provisioning(ViewBuilder &view, const VpdPage &page) {
  if (const ByteSpan byte = bytes_at(page, 6, 1); !byte.empty()) {
    const unsigned type = byte[0] & 0x07;
    view.field("Provisioning", "provisioning_type", provisioning_text(type), type);
  }
  for (const Flag &flag : provisioning_flags)
    add_flag(view, page, flag);
}

}  // namespace tool
