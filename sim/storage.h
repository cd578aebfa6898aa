// The blocks of a simulated disk: what was never written reads as zeros and takes no room, in
// memory or in the sparse file that keeps them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <span>

#include "sim/scsi.h"

namespace sim {

class Storage {
 public:
  Storage(std::uint64_t blocks, std::uint32_t block_size);
  Storage(const Storage &) = delete;
  Storage &operator=(const Storage &) = delete;
  ~Storage();

  /// Keeps the blocks in `file` from now on, and goes on from what it holds; before anything is
  /// written. Throws StateError.
  void keep_in(const std::filesystem::path &file);

  std::uint64_t blocks() const { return blocks_; }
  std::uint32_t block_size() const { return block_size_; }
  /// Whether `count` blocks from `lba` on lie on the disk.
  bool contains(std::uint64_t lba, std::uint64_t count) const;

  // The blocks must lie on the disk. Both throw Termination, MEDIUM ERROR, when the file fails.
  Bytes read(std::uint64_t lba, std::size_t count) const;
  /// Writes whole blocks.
  void write(std::uint64_t lba, std::span<const std::uint8_t> data);

 private:
  /// Calls visit(chunk, offset in it, offset in the data, length) for each chunk that `size`
  /// bytes from `lba` on touch.
  template <class Visit>
  void for_each_chunk(std::uint64_t lba, std::size_t size, Visit visit) const;
  /// Whether `size` bytes from `lba` on have offsets in a file at all.
  bool has_offsets(std::uint64_t lba, std::size_t size) const;

  const std::uint64_t blocks_;
  const std::uint32_t block_size_;
  std::map<std::uint64_t, Bytes> chunks_;  ///< those that were written to
  int fd_ = -1;                            ///< of the file, if one keeps them
};

}  // namespace sim
