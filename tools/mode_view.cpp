#include "tools/mode_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "base/bytes.h"
#include "tools/error.h"

namespace tool {
namespace {

constexpr std::size_t header_size_6 = 4;
constexpr std::size_t header_size_10 = 8;
constexpr std::size_t short_descriptor = 8;
constexpr std::size_t long_descriptor = 16;

std::size_t announced_size(ByteSpan reply, ModeForm form) {
  return form == ModeForm::six ? reply[0] + std::size_t{1} : kzddl::load_be16(&reply[0]) + 2U;
}

// --- fields of pages ---

/// Bits of a page: `width` of them, from bit `bit` on, of the number in `size` bytes at `at`.
struct Field {
  std::uint8_t at;
  std::uint8_t size;
  std::uint8_t bit;
  std::uint8_t width;
  const char *key;
  const char *label;
  const char *unit = "";

  std::uint32_t mask() const { return 0xFFFFFFFFU >> (32 - width); }

  std::uint32_t value(ByteSpan page) const {
    std::uint32_t number = 0;
    for (const std::uint8_t byte : page.subspan(at, size))
      number = number << 8 | byte;
    return number >> bit & mask();
  }
};

constexpr Field flag(std::uint8_t at, std::uint8_t bit, const char *key, const char *label) {
  return {at, 1, bit, 1, key, label};
}

constexpr Field bits(std::uint8_t at, std::uint8_t bit, std::uint8_t width, const char *key,
                     const char *label) {
  return {at, 1, bit, width, key, label};
}

constexpr Field number(std::uint8_t at, std::uint8_t size, const char *key, const char *label,
                       const char *unit = "") {
  return {at, size, 0, static_cast<std::uint8_t>(8 * size), key, label, unit};
}

constexpr Field format_fields[] = {
    number(2, 2, "tracks_per_zone", "Tracks per zone"),
    number(4, 2, "alternate_sectors_per_zone", "Alternate sectors per zone"),
    number(6, 2, "alternate_tracks_per_zone", "Alternate tracks per zone"),
    number(8, 2, "alternate_tracks_per_unit", "Alternate tracks per unit"),
    number(10, 2, "sectors_per_track", "Sectors per track"),
    number(12, 2, "bytes_per_sector", "Bytes per sector"),
    number(14, 2, "interleave", "Interleave"),
    number(16, 2, "track_skew", "Track skew"),
    number(18, 2, "cylinder_skew", "Cylinder skew"),
    flag(20, 7, "soft_sectors", "Soft sectors"),
    flag(20, 6, "hard_sectors", "Hard sectors"),
    flag(20, 5, "removable", "Removable"),
    flag(20, 4, "surface_order", "Addresses by surface"),
};

constexpr Field geometry_fields[] = {
    number(2, 3, "cylinders", "Cylinders"),
    number(5, 1, "heads", "Heads"),
    number(6, 3, "write_precompensation_cylinder", "Write precompensation from"),
    number(9, 3, "reduced_current_cylinder", "Reduced write current from"),
    number(12, 2, "step_rate", "Step rate", " x 100 ns"),
    number(14, 3, "landing_zone_cylinder", "Landing zone cylinder"),
    bits(17, 0, 2, "rotational_position_locking", "Rotational position locking"),
    number(18, 1, "rotational_offset", "Rotational offset"),
    number(20, 2, "rotation_rate", "Rotation rate", " a minute"),
};

constexpr Field caching_fields[] = {
    flag(2, 2, "write_cache_enabled", "Write cache (WCE)"),
    flag(2, 0, "read_cache_disabled", "Read cache disabled (RCD)"),
    flag(2, 7, "initiator_control", "Initiator control (IC)"),
    flag(2, 6, "abort_prefetch", "Abort prefetch (ABPF)"),
    flag(2, 5, "analysis_permitted", "Caching analysis (CAP)"),
    flag(2, 4, "discontinuity", "Discontinuity (DISC)"),
    flag(2, 3, "segment_size_counts", "Size enable (SIZE)"),
    flag(2, 1, "multiplication_factor", "Multiplication (MF)"),
    bits(3, 4, 4, "read_retention_priority", "Read retention priority"),
    bits(3, 0, 4, "write_retention_priority", "Write retention priority"),
    number(4, 2, "prefetch_disabled_from", "No prefetch from", " blocks"),
    number(6, 2, "minimum_prefetch", "Minimum prefetch"),
    number(8, 2, "maximum_prefetch", "Maximum prefetch"),
    number(10, 2, "prefetch_ceiling", "Prefetch ceiling"),
    flag(12, 7, "force_sequential_write", "Sequential write (FSW)"),
    flag(12, 6, "segment_size_in_blocks", "Segments in blocks (LBCSS)"),
    flag(12, 5, "read_ahead_disabled", "Read ahead disabled (DRA)"),
    flag(12, 0, "nonvolatile_cache_disabled", "Nonvolatile off (NV_DIS)"),
    number(13, 1, "cache_segments", "Cache segments"),
    number(14, 2, "cache_segment_size", "Cache segment size"),
};

constexpr Field control_fields[] = {
    bits(2, 5, 3, "task_set_type", "Task set type (TST)"),
    flag(2, 4, "own_task_management_only", "Own tasks only (TMF_ONLY)"),
    flag(2, 3, "protection_check_disabled", "No protection check (DPICZ)"),
    flag(2, 2, "descriptor_sense", "Descriptor sense (D_SENSE)"),
    flag(2, 1, "no_implicit_log_save", "No implicit log save (GLTSD)"),
    flag(2, 0, "report_log_exceptions", "Log exceptions (RLEC)"),
    bits(3, 4, 4, "queue_algorithm", "Queue algorithm (QAM)"),
    flag(3, 3, "no_unit_attention_on_release", "No attention (NUAR)"),
    bits(3, 1, 2, "queue_error_management", "Queue error (QERR)"),
    flag(4, 6, "report_a_check", "Report a check (RAC)"),
    bits(4, 4, 2, "unit_attention_interlock", "UA interlock"),
    flag(4, 3, "software_write_protect", "Write protect (SWP)"),
    flag(5, 7, "application_tag_owner", "Application tag owner (ATO)"),
    flag(5, 6, "task_aborted_status", "Task aborted status (TAS)"),
    flag(5, 5, "application_tag_mode", "Application tag page (ATMPE)"),
    flag(5, 4, "reject_unprotected_writes", "Reject unprotected (RWWP)"),
    bits(5, 0, 3, "autoload_mode", "Autoload mode"),
    number(8, 2, "busy_timeout", "Busy timeout", " x 100 ms"),
    number(10, 2, "self_test_time", "Extended self-test", " s"),
};

constexpr Field copy_fields[] = {
    number(3, 1, "max_concurrent_copies", "Concurrent copies"),
    number(4, 2, "max_target_descriptors", "Target descriptors"),
    number(6, 2, "max_segment_descriptors", "Segment descriptors"),
    number(8, 4, "max_descriptor_list_length", "Descriptor list", " bytes"),
    number(12, 4, "max_segment_length", "Segment length", " bytes"),
    number(16, 4, "max_inline_data_length", "Inline data", " bytes"),
    number(28, 1, "data_segment_granularity", "Segment granularity (2^n)"),
    number(29, 1, "inline_data_granularity", "Inline granularity (2^n)"),
    number(30, 1, "held_data_granularity", "Held data granularity (2^n)"),
    number(35, 1, "descriptor_types", "Descriptor types"),
};

struct KnownPage {
  std::uint8_t code;
  std::string_view name;
  std::span<const Field> fields{};
};

constexpr KnownPage known_pages[] = {
    {0x01, "Read-Write Error Recovery"},
    {0x02, "Disconnect-Reconnect"},
    {0x03, "Format Device", format_fields},
    {0x04, "Rigid Disk Geometry", geometry_fields},
    {0x07, "Verify Error Recovery"},
    {0x08, "Caching", caching_fields},
    {0x0A, "Control", control_fields},
    {0x0E, "Copy Limits", copy_fields},
    {0x18, "Protocol-Specific Logical Unit"},
    {0x19, "Protocol-Specific Port"},
    {0x1A, "Power Condition"},
    {0x1C, "Informational Exceptions"},
};

std::string value_words(const Field &field, std::uint32_t value, ModeValues values) {
  if (values == ModeValues::changeable) {
    if (value == 0) return "fixed";
    return value == field.mask() ? "changeable" : fmt::format("mask {:X}h", value);
  }
  return field.width == 1 ? yes_no(value != 0) : fmt::format("{}{}", value, field.unit);
}

// --- a page ---

/// A page where it lies in a reply.
struct Page {
  std::uint8_t code = 0;
  std::uint8_t subpage = 0;
  bool savable = false;
  bool has_subpage_format = false;
  std::size_t announced = 0;  ///< bytes, the page's header included
  ByteSpan bytes{};           ///< as far as they are here
};

/// The page that `rest` begins with; `rest` is not empty.
Page parse_page(ByteSpan rest) {
  Page page{.code = static_cast<std::uint8_t>(rest[0] & 0x3F),
            .savable = (rest[0] & 0x80) != 0,
            .has_subpage_format = (rest[0] & 0x40) != 0,
            .announced = 2};
  if (page.has_subpage_format) {
    if (rest.size() > 1) page.subpage = rest[1];
    page.announced = 4 + (rest.size() >= 4 ? kzddl::load_be16(&rest[2]) : 0U);
  } else if (rest.size() > 1) {
    page.announced += rest[1];
  }
  page.bytes = rest.first(std::min(page.announced, rest.size()));
  return page;
}

const KnownPage *known(const Page &page) {
  if (page.has_subpage_format) return nullptr;
  const auto *found = std::find_if(std::begin(known_pages), std::end(known_pages),
                                   [&page](const KnownPage &k) { return k.code == page.code; });
  return found == std::end(known_pages) ? nullptr : found;
}

/// An empty line sets the pages apart.
std::string page_title(const Page &page, const KnownPage *known_page) {
  std::string title = fmt::format("\nPage {:02X}h", page.code);
  if (page.has_subpage_format) title += fmt::format(", subpage {:02X}h", page.subpage);
  if (known_page != nullptr) title += fmt::format(", {}", known_page->name);
  return title + fmt::format(", {}{}", counted(page.bytes.size(), "byte"),
                             page.savable ? ", can be saved" : "");
}

View page_view(const Page &page, ModeValues values) {
  const KnownPage *const known_page = known(page);
  ViewBuilder view(page_title(page, known_page));
  view.value("page", page.code);
  view.value("subpage", page.has_subpage_format ? Json(page.subpage) : Json());
  view.value("name", known_page != nullptr ? Json(known_page->name) : Json());
  view.value("savable", page.savable);
  view.value("hex", hex(page.bytes));
  bool has_fields = false;
  for (const Field &field : known_page != nullptr ? known_page->fields : std::span<const Field>()) {
    if (page.bytes.size() < std::size_t{field.at} + field.size) continue;
    const std::uint32_t value = field.value(page.bytes);
    view.field(field.label, field.key, value_words(field, value, values),
               field.width == 1 ? Json(value != 0) : Json(value));
    has_fields = true;
  }
  if (!has_fields) view.append(hex_dump(page.bytes));
  view.size(page.bytes.size(), page.announced);
  return view.build();
}

// --- header and block descriptors ---

struct Header {
  std::size_t size;
  std::uint8_t medium_type;
  std::uint8_t device_specific;
  bool has_long_descriptors;
  std::size_t descriptors;  ///< bytes
};

/// `reply` holds the whole header.
Header parse_header(ByteSpan reply, ModeForm form) {
  if (form == ModeForm::six) return {header_size_6, reply[1], reply[2], false, reply[3]};
  return {header_size_10, reply[2], reply[3], (reply[4] & 0x01) != 0, kzddl::load_be16(&reply[6])};
}

void add_descriptors(ViewBuilder &view, ByteSpan bytes, bool is_long) {
  const std::size_t size = is_long ? long_descriptor : short_descriptor;
  Json list = Json::array();
  for (; bytes.size() >= size; bytes = bytes.subspan(size)) {
    const std::uint64_t blocks =
        is_long ? kzddl::load_be64(&bytes[0]) : kzddl::load_be32(&bytes[0]);
    // Three bytes in the short form.
    const std::uint32_t block_size =
        is_long ? kzddl::load_be32(&bytes[12]) : kzddl::load_be32(&bytes[4]) & 0xFFFFFF;
    const bool is_beyond = !is_long && blocks == 0xFFFFFFFF;
    list.push_back({{"blocks", is_beyond ? Json() : Json(blocks)}, {"block_size", block_size}});
    view.field(
        "Block descriptor", "block_descriptors",
        fmt::format("{} of {} bytes",
                    is_beyond ? "more than 32 bits of blocks" : fmt::format("{} blocks", blocks),
                    block_size),
        list);
  }
  if (list.empty()) view.value("block_descriptors", std::move(list));
}

}  // namespace

ModeForm mode_form_of(ByteSpan reply) {
  const bool is_ten = reply.size() >= 2 && reply.size() == announced_size(reply, ModeForm::ten);
  return is_ten ? ModeForm::ten : ModeForm::six;
}

View mode_view(const std::string &title, ByteSpan reply, ModeForm form, ModeValues values) {
  const std::size_t header_size = form == ModeForm::six ? header_size_6 : header_size_10;
  if (reply.size() < header_size) {
    throw Error::usage(
        fmt::format("cut short: {} of the {} bytes of a header", reply.size(), header_size));
  }
  const std::size_t announced = announced_size(reply, form);
  reply = reply.first(std::min(reply.size(), std::max(announced, header_size)));
  const Header header = parse_header(reply, form);

  ViewBuilder view(fmt::format("{}, {}", title, counted(reply.size(), "byte")));
  view.size(reply.size(), announced);
  view.field("Medium type", "medium_type", fmt::format("{:02X}h", header.medium_type),
             header.medium_type);
  const bool is_protected = (header.device_specific & 0x80) != 0;
  view.field("Write protected", "write_protected", yes_no(is_protected), is_protected);
  const bool has_dpo_fua = (header.device_specific & 0x10) != 0;
  view.field("DPO and FUA", "dpo_fua", yes_no(has_dpo_fua), has_dpo_fua);
  ByteSpan rest = reply.subspan(header.size);
  const std::size_t descriptors = std::min(header.descriptors, rest.size());
  add_descriptors(view, rest.first(descriptors), header.has_long_descriptors);

  Json pages = Json::array();
  for (rest = rest.subspan(descriptors); !rest.empty();) {
    const Page page = parse_page(rest);
    const View shown = page_view(page, values);
    view.append(shown.text);
    pages.push_back(shown.json);
    rest = rest.subspan(page.bytes.size());
  }
  view.value("pages", std::move(pages));
  return view.build();
}

}  // namespace tool
