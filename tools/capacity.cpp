#include "tools/capacity.h"

#include <fmt/format.h>

#include <array>
#include <limits>

#include "base/bytes.h"
#include "kzddl/kzreadcap.h"
#include "tools/error.h"
#include "tools/query.h"

namespace tool {
namespace {

constexpr std::size_t size_10 = 8;
constexpr std::size_t size_16 = 32;
constexpr std::size_t needed_of_16 = 12;  ///< last LBA and block size
constexpr std::uint32_t beyond_32_bits = 0xFFFFFFFF;

bool is_short_form(ByteSpan reply) { return reply.size() == size_10; }

/// READ CAPACITY (10) cannot tell: (16) must be asked.
bool is_beyond(ByteSpan reply) {
  return is_short_form(reply) && kzddl::load_be32(reply.data()) == beyond_32_bits;
}

/// How many bytes a reply of this size would need to tell the capacity.
std::size_t needed(ByteSpan reply) { return reply.size() <= size_10 ? size_10 : needed_of_16; }

Capacity parse(ByteSpan reply) {
  const std::uint8_t *data = reply.data();
  if (is_short_form(reply)) {
    return {.last_lba = kzddl::load_be32(data), .block_size = kzddl::load_be32(data + 4)};
  }
  return {.last_lba = kzddl::load_be64(data), .block_size = kzddl::load_be32(data + 8)};
}

std::vector<std::uint8_t> read_capacity_10(Device &device) {
  const std::array<std::uint8_t, 10> cdb{opcode::read_capacity_10};
  return ask(device, "capacity", cdb, size_10, [&device](int *length, unsigned char **data) {
    return do_read_capacity(device.path(), 0, 0, 0, length, data);
  });
}

std::vector<std::uint8_t> read_capacity_16(Device &device) {
  constexpr std::uint8_t read_capacity = 0x10;  // service action
  std::array<std::uint8_t, 16> cdb{opcode::service_action_in_16, read_capacity};
  kzddl::store_be32(&cdb[10], size_16);
  const auto family = [&device](int *length, unsigned char **data) {
    return do_read_capacity_16(device.path(), 0, 0, 0, length, data);
  };
  // The family goes through the control node alone.
  return ask(device, "capacity", cdb, size_16, is_direct_route() ? Family() : Family(family));
}

std::string command_name(ByteSpan reply) {
  return fmt::format("READ CAPACITY ({})", is_short_form(reply) ? 10 : 16);
}

/// What READ CAPACITY (16) tells besides.
void add_details(ViewBuilder &view, ByteSpan reply, const Capacity &capacity) {
  constexpr std::size_t needed = 16;
  if (reply.size() < needed) return;
  const bool is_protected = (reply[12] & 0x01) != 0;
  const unsigned type = is_protected ? (reply[12] >> 1 & 0x07U) + 1 : 0;
  view.field("Protection", "protection_type", is_protected ? fmt::format("type {}", type) : "none",
             type);
  const std::uint64_t physical = std::uint64_t{capacity.block_size} << (reply[13] & 0x0F);
  view.field("Physical block", "physical_block_size", fmt::format("{} bytes", physical), physical);
  const unsigned aligned = kzddl::load_be16(&reply[14]) & 0x3FFF;
  view.field("First aligned", "lowest_aligned_lba", fmt::format("LBA {}", aligned), aligned);
  const bool thin = (reply[14] & 0x80) != 0;
  view.field("Thin", "thin_provisioned", yes_no(thin), thin);
}

}  // namespace

std::optional<std::uint64_t> Capacity::blocks() const {
  if (last_lba == std::numeric_limits<std::uint64_t>::max()) return std::nullopt;
  return last_lba + 1;
}

std::optional<std::uint64_t> Capacity::bytes() const {
  const std::optional<std::uint64_t> count = blocks();
  std::uint64_t product = 0;
  if (!count || __builtin_mul_overflow(*count, block_size, &product)) return std::nullopt;
  return product;
}

std::string Capacity::words() const {
  return size_words((static_cast<double>(last_lba) + 1) * block_size);
}

std::string size_words(double bytes) {
  static constexpr std::array units{"bytes", "kB", "MB", "GB", "TB", "PB", "EB", "ZB", "YB"};
  if (bytes < 1000) return fmt::format("{:.0f} bytes", bytes);
  std::size_t unit = 0;
  for (; bytes >= 999.5 && unit + 1 < units.size(); ++unit)
    bytes /= 1000;
  const int decimals = bytes < 9.995 ? 2 : bytes < 99.95 ? 1 : 0;
  return fmt::format("{:.{}f} {}", bytes, decimals, units[unit]);
}

std::vector<std::uint8_t> read_capacity_reply(Device &device) {
  std::vector<std::uint8_t> reply = read_capacity_10(device);
  std::size_t enough = size_10;
  if (is_beyond(reply)) {
    reply = read_capacity_16(device);  // on IA-64 the short answer again
    enough = needed_of_16;
  }
  if (reply.size() < enough) {
    throw Error("capacity", device.name(),
                fmt::format("only {} of {} bytes came", reply.size(), enough));
  }
  return reply;
}

Capacity read_capacity(Device &device) { return parse(read_capacity_reply(device)); }

View capacity_view(const std::string &title, ByteSpan reply) {
  if (reply.size() < needed(reply)) {
    throw Error::usage(fmt::format("cut short: {} of {} bytes", reply.size(), needed(reply)));
  }
  const Capacity capacity = parse(reply);
  ViewBuilder view(title);
  view.value("command", command_name(reply));
  if (is_beyond(reply)) {
    view.field("Last LBA", "last_lba", "beyond 32 bits, READ CAPACITY (16) tells it", nullptr);
  } else {
    const auto bytes = capacity.bytes();
    const auto blocks = capacity.blocks();
    view.field("Capacity", "bytes",
               capacity.words() + (bytes ? fmt::format(" ({} bytes)", *bytes) : ""),
               json_or_null(bytes));
    view.field("Blocks", "blocks", blocks ? fmt::format("{}", *blocks) : "2^64",
               json_or_null(blocks));
    view.field("Last LBA", "last_lba", fmt::format("{}", capacity.last_lba), capacity.last_lba);
  }
  view.field("Block size", "block_size", fmt::format("{} bytes", capacity.block_size),
             capacity.block_size);
  if (!is_short_form(reply)) add_details(view, reply, capacity);
  return view.build();
}

View captured_capacity_view(ByteSpan reply) {
  return capacity_view(
      fmt::format("{} data, {}", command_name(reply), counted(reply.size(), "byte")), reply);
}

}  // namespace tool
