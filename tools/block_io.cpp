#include "tools/block_io.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "base/bytes.h"
#include "tools/error.h"
#include "tools/query.h"

namespace tool {
namespace {

constexpr std::size_t chunk_size = 512 * 1024;   ///< bytes
constexpr std::size_t request_size = 64 * 1024;  ///< bytes that both routes and every adapter take
constexpr std::uint32_t largest_block = chunk_size;
constexpr std::uint64_t last_of_32_bits = std::numeric_limits<std::uint32_t>::max();

using Cdb = std::vector<std::uint8_t>;

/// READ or WRITE in its 10-byte form, or the 16-byte one where the blocks lie beyond 32 bits.
Cdb cdb_of(std::uint64_t lba, std::size_t blocks, bool writes) {
  const auto count = static_cast<std::uint32_t>(blocks);
  if (lba + (blocks - 1) <= last_of_32_bits) {
    Cdb cdb(10);
    cdb[0] = writes ? opcode::write_10 : opcode::read_10;
    kzddl::store_be32(&cdb[2], static_cast<std::uint32_t>(lba));
    kzddl::store_be16(&cdb[7], static_cast<std::uint16_t>(count));
    return cdb;
  }
  Cdb cdb(16);
  cdb[0] = writes ? opcode::write_16 : opcode::read_16;
  kzddl::store_be64(&cdb[2], lba);
  kzddl::store_be32(&cdb[10], count);
  return cdb;
}

}  // namespace

BlockDevice::BlockDevice(Device &device, std::string operation)
    : device_(device), operation_(std::move(operation)), capacity_(read_capacity(device)) {
  require_told_outcomes(device, operation_);
  if (!capacity_.blocks() || capacity_.block_size == 0 || capacity_.block_size > largest_block) {
    throw Error(operation_, name(),
                fmt::format("the device reports a last LBA of {} and blocks of {} bytes",
                            capacity_.last_lba, capacity_.block_size));
  }
}

std::size_t BlockDevice::chunk() const { return chunk_size / block_size(); }

void BlockDevice::require(std::uint64_t lba, std::uint64_t count) const {
  if (lba <= last_lba() && count <= last_lba() - lba + 1) return;
  throw Error::usage(fmt::format("{} {}: {} blocks from LBA {} on go past the last, LBA {}",
                                 operation_, device_.path()->devname, count, lba, last_lba()));
}

Moved BlockDevice::read(std::uint64_t lba, std::span<std::uint8_t> data) {
  return move(lba, data, false);
}

Moved BlockDevice::write(std::uint64_t lba, std::span<std::uint8_t> data) {
  return move(lba, data, true);
}

Moved BlockDevice::move(std::uint64_t lba, std::span<std::uint8_t> data, bool writes) {
  const std::size_t count = data.size() / block_size();
  const std::size_t step = std::max<std::size_t>(1, request_size / block_size());
  for (std::size_t done = 0; done < count;) {
    const std::size_t blocks = std::min(step, count - done);
    Moved moved =
        move_step(lba + done, data.subspan(done * block_size(), blocks * block_size()), writes);
    done += moved.blocks;
    if (!moved.failure.empty()) return {done, std::move(moved.failure)};
  }
  return {count};
}

/// One request. What failed goes again block by block, which finds the block that fails: a write
/// that was carried out after all puts the same data in the same place.
Moved BlockDevice::move_step(std::uint64_t lba, std::span<std::uint8_t> data, bool writes) {
  const std::size_t count = data.size() / block_size();
  auto failure = send(lba, data, writes);
  if (!failure) return {count};
  if (count == 1) return {0, std::move(*failure)};
  for (std::size_t i = 0; i < count; ++i) {
    failure = send(lba + i, data.subspan(i * block_size(), block_size()), writes);
    if (failure) return {i, std::move(*failure)};
  }
  return {count};
}

/// Sends one command; says why it failed, if it did.
std::optional<std::string> BlockDevice::send(std::uint64_t lba, std::span<std::uint8_t> data,
                                             bool writes) {
  try {
    const auto direction = writes ? Data::Direction::to_device : Data::Direction::from_device;
    const Completion completion = send_past_attention(
        device_, cdb_of(lba, data.size() / block_size(), writes), {direction, data}, operation_);
    if (!completion.ok()) return completion.reason();
    if (completion.transferred == data.size()) return std::nullopt;
    return fmt::format("{} of {} bytes moved", completion.transferred, data.size());
  } catch (const Error &error) {
    return error.reason();
  }
}

}  // namespace tool
