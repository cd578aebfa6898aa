// The blocks of a simulated disk: what was never written reads as zeros and takes no memory.
#pragma once

#include <cstdint>
#include <map>
#include <span>

#include "sim/scsi.h"

namespace sim {

class Storage {
 public:
  Storage(std::uint64_t blocks, std::uint32_t block_size);

  std::uint64_t blocks() const { return blocks_; }
  std::uint32_t block_size() const { return block_size_; }
  /// Whether `count` blocks from `lba` on lie on the disk.
  bool contains(std::uint64_t lba, std::uint64_t count) const;

  // The blocks must lie on the disk.
  Bytes read(std::uint64_t lba, std::size_t count) const;
  /// Writes whole blocks.
  void write(std::uint64_t lba, std::span<const std::uint8_t> data);

 private:
  /// Calls visit(chunk, offset in it, offset in the data, length) for each chunk that `size`
  /// bytes from `lba` on touch.
  template <class Visit>
  void for_each_chunk(std::uint64_t lba, std::size_t size, Visit visit) const;

  const std::uint64_t blocks_;
  const std::uint32_t block_size_;
  std::map<std::uint64_t, Bytes> chunks_;  ///< those that were written to
};

}  // namespace sim
