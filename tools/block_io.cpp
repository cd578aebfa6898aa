#include "tools/block_io.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "base/bytes.h"
#include "kzddl/kzdiskio.h"
#include "tools/error.h"
#include "tools/query.h"
#include "tools/readiness.h"

namespace tool {
namespace {

constexpr std::size_t disk_io_block = 512;      ///< the only size that the library's disk I/O knows
constexpr std::size_t chunk_size = 512 * 1024;  ///< bytes
constexpr std::size_t request_size = 4096;  ///< bytes of a command, as in the library's disk I/O
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

bool is_ready(Device &device) {
  try {
    return test_unit_ready(device).ready;
  } catch (const Error &) {
    return false;
  }
}

}  // namespace

BlockDevice::BlockDevice(Device &device, std::string operation)
    : device_(device), operation_(std::move(operation)), capacity_(read_capacity(device)) {
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

/// The pass-through does what the library's disk I/O cannot, and finds out where and why that
/// failed.
Moved BlockDevice::move(std::uint64_t lba, std::span<std::uint8_t> data, bool writes) {
  const std::size_t count = data.size() / block_size();
  if (disk_io(lba, data, writes)) return {count};
  std::size_t step = std::max<std::size_t>(1, request_size / block_size());
  for (std::size_t done = 0; done < count;) {
    const std::size_t blocks = std::min(step, count - done);
    const auto part = data.subspan(done * block_size(), blocks * block_size());
    if (auto failure = send(lba + done, part, writes); !failure) {
      done += blocks;
    } else if (blocks == 1) {
      return {done, std::move(*failure)};
    } else {
      step = 1;
    }
  }
  return {count};
}

bool BlockDevice::disk_io(std::uint64_t lba, std::span<std::uint8_t> data, bool writes) {
  const std::size_t count = data.size() / disk_io_block;
  if (block_size() != disk_io_block || lba + (count - 1) > last_of_32_bits) return false;
  const int result =
      do_diskio(device_.path(), static_cast<unsigned>(lba), static_cast<unsigned>(count),
                data.data(), writes ? KZDDL_DISKIO_WRITE : KZDDL_DISKIO_READ);
  // Its request succeeds on a path that has died: only success on a living path counts.
  return result == 0 && is_ready(device_);
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
