#include "tools/copy_limits.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>

#include "base/bytes.h"
#include "base/memory.h"
#include "tools/error.h"
#include "tools/mode_sense.h"
#include "tools/query.h"

namespace tool {
namespace {

constexpr std::string_view operation = "copy-limits";

/// Segment descriptors are below C0h, target descriptors from E0h on.
constexpr Word<std::uint8_t> descriptor_types[] = {
    {0x00, "block to stream"},
    {0x01, "stream to block"},
    {0x02, "block to block"},
    {0x03, "stream to stream"},
    {0x04, "inline to stream"},
    {0x05, "embedded to stream"},
    {0x06, "stream to discard"},
    {0x07, "verify target"},
    {0x08, "block with offset to stream"},
    {0x09, "stream to block with offset"},
    {0x0A, "block with offset to block with offset"},
    {0xE0, "N_Port_Name target"},
    {0xE1, "N_Port_ID target"},
    {0xE2, "N_Port_ID with N_Port_Name target"},
    {0xE3, "parallel interface target"},
    {0xE4, "identification descriptor target"},
    {0xE5, "IPv4 target"},
    {0xE6, "alias target"},
    {0xE7, "RDMA target"},
    {0xE8, "IEEE 1394 target"},
    {0xE9, "SAS target"},
    {0xEA, "IPv6 target"},
    {0xEB, "copy service target"},
};

std::string descriptor_type_words(std::uint8_t code) {
  const auto *type = find_code(descriptor_types, code);
  return type ? std::string(type->text) : "unknown";
}

/// "268435456 bytes (256 MiB)".
std::string bytes_text(std::uint64_t bytes) {
  static constexpr std::string_view units[] = {"KiB", "MiB", "GiB"};
  constexpr std::uint64_t step = 1024;
  std::size_t unit = 0;
  std::uint64_t count = bytes;
  for (; unit < std::size(units) && count >= step && count % step == 0; ++unit)
    count /= step;
  std::string text = counted(bytes, "byte");
  if (unit != 0) text += fmt::format(" ({} {})", count, units[unit - 1]);
  return text;
}

std::string limit_text(std::uint32_t bytes, std::string_view of_zero) {
  return bytes == 0 ? std::string(of_zero) : "at most " + bytes_text(bytes);
}

/// A granularity is a power of two; null when it is more than can be.
Json granularity(std::uint8_t power) {
  return power < std::numeric_limits<std::uint64_t>::digits ? Json(std::uint64_t{1} << power)
                                                            : Json();
}

std::string granularity_text(std::uint8_t power) {
  const Json bytes = granularity(power);
  return bytes.is_null() ? fmt::format("2^{} bytes", power)
                         : bytes_text(bytes.get<std::uint64_t>());
}

void add_types(ViewBuilder &view, const rcr_oper_parm &limits) {
  const std::span codes(limits.implemented_descriptor_type_codes,
                        limits.implemented_descriptor_list_length);
  Json list = Json::array();
  std::string label = "Descriptor types";
  for (const std::uint8_t code : codes) {
    view.line(label, fmt::format("{:02X}h {}", code, descriptor_type_words(code)));
    label.clear();
    list.push_back({{"code", code}, {"type", descriptor_type_words(code)}});
  }
  if (codes.empty()) view.line(label, "none");
  view.value("descriptor_types", std::move(list));
}

/// How long a reply of RECEIVE COPY RESULTS says it is.
std::uint64_t announced_size(ByteSpan reply) {
  constexpr std::size_t length_size = 4;
  return length_size +
         std::uint64_t{reply.size() < length_size ? 0 : kzddl::load_be32(reply.data())};
}

ByteSpan announced_part(ByteSpan reply) {
  return reply.first(std::min<std::uint64_t>(reply.size(), announced_size(reply)));
}

using Convert = int(const unsigned char *data, int length, rcr_oper_parm **record);

/// Nothing when the data are too short.
std::optional<rcr_oper_parm> record_in(ByteSpan data, Convert &convert) {
  rcr_oper_parm *record = nullptr;
  const int result = convert(data.data(), static_cast<int>(data.size()), &record);
  const kzddl::Owned<rcr_oper_parm> owner(record);
  if (result != 0) return std::nullopt;
  return *record;
}

/// Nothing when the device refuses the command, or its reply is too short.
std::optional<rcr_oper_parm> receive_limits(Device &device) {
  constexpr std::uint8_t operating_parameters = 0x03;  // service action
  std::array<std::uint8_t, 255> reply{};
  std::array<std::uint8_t, 16> cdb{opcode::receive_copy_results, operating_parameters};
  kzddl::store_be32(&cdb[10], reply.size());
  const Completion completion = send_past_attention(
      device, cdb, {.direction = Data::Direction::from_device, .bytes = reply}, operation);
  if (completion.status == scsi_status::check_condition) return std::nullopt;
  if (!completion.ok())
    throw Error(operation, device.name(), completion.reason(), completion.sense);
  return record_in(announced_part(ByteSpan(reply).first(completion.transferred)),
                   do_convert_to_rcr_oper_parm);
}

/// The page without the header and the block descriptors before it.
ByteSpan first_page(ByteSpan modes) {
  constexpr std::size_t header_size = 4;
  if (modes.size() < header_size) return {};
  return modes.subspan(std::min(modes.size(), header_size + modes[header_size - 1]));
}

}  // namespace

rcr_oper_parm read_copy_limits(Device &device) {
  require_told_outcomes(device, operation);
  if (const auto limits = receive_limits(device)) return *limits;
  const auto modes =
      read_modes(device, {.page = 0x0E, .values = ModeValues::changeable}, operation);
  if (const auto limits =
          record_in(first_page(modes), do_convert_mode_sense_oper_parm_to_rcr_oper_parm)) {
    return *limits;
  }
  throw Error(operation, device.name(), "the device's mode page 0Eh is too short");
}

void show_copy_limits(ViewBuilder &view, const rcr_oper_parm &limits) {
  const auto count = [&view](const char *label, const char *key, unsigned number) {
    view.field(label, key, fmt::format("at most {}", number), number);
  };
  const auto bytes = [&view](const char *label, const char *key, std::uint32_t number,
                             std::string_view of_zero = "none") {
    view.field(label, key, limit_text(number, of_zero), number);
  };
  const auto unit = [&view](const char *label, const char *key, std::uint8_t power) {
    view.field(label, key, granularity_text(power), granularity(power));
  };
  count("Targets", "max_target_descriptors", limits.max_target_descriptor_count);
  count("Segments", "max_segment_descriptors", limits.max_segment_descriptor_count);
  bytes("Descriptor list", "max_descriptor_list_bytes", limits.max_descriptor_list_length);
  bytes("Segment length", "max_segment_bytes", limits.max_segment_length, "no limit");
  bytes("Inline data", "max_inline_data_bytes", limits.max_inline_data_length);
  bytes("Held data", "held_data_limit_bytes", limits.held_data_limit);
  bytes("Stream transfer", "max_stream_transfer_bytes", limits.max_stream_device_transfer_size);
  count("Concurrent copies", "max_concurrent_copies", limits.max_concurrent_copies);
  unit("Segment unit", "segment_granularity_bytes", limits.data_segment_granularity);
  unit("Inline unit", "inline_granularity_bytes", limits.inline_data_granularity);
  unit("Held unit", "held_granularity_bytes", limits.held_data_granularity);
  add_types(view, limits);
}

View captured_copy_limits_view(ByteSpan reply) {
  constexpr std::size_t needed = 43;
  const ByteSpan data = announced_part(reply);
  const auto limits = record_in(data, do_convert_to_rcr_oper_parm);
  if (!limits) throw Error::usage(fmt::format("cut short: {} of {} bytes", data.size(), needed));
  ViewBuilder view(fmt::format("Copy operating parameters, {}", counted(data.size(), "byte")));
  show_copy_limits(view, *limits);
  view.size(data.size(), announced_size(reply));
  return view.build();
}

}  // namespace tool
