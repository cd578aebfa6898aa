// The blocks of a disk, read and written by the pass-through, which tells when a request was lost.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "tools/capacity.h"
#include "tools/device.h"

namespace tool {

/// How far a transfer came.
struct Moved {
  std::size_t blocks = 0;
  std::string failure{};  ///< why not all; empty when all did
};

class BlockDevice {
 public:
  /// Asks for the capacity. Throws Error, which names `operation`, when there is none to work with.
  BlockDevice(Device &device, std::string operation);

  const std::string &name() const { return device_.name(); }
  std::size_t block_size() const { return capacity_.block_size; }
  std::uint64_t last_lba() const { return capacity_.last_lba; }
  /// Blocks to move at a time.
  std::size_t chunk() const;

  /// Throws Error (of usage) unless `count` blocks from `lba` on lie on the disk.
  void require(std::uint64_t lba, std::uint64_t count) const;

  // `data` are whole blocks, at most a chunk of them.
  Moved read(std::uint64_t lba, std::span<std::uint8_t> data);
  Moved write(std::uint64_t lba, std::span<std::uint8_t> data);

 private:
  Moved move(std::uint64_t lba, std::span<std::uint8_t> data, bool writes);
  Moved move_step(std::uint64_t lba, std::span<std::uint8_t> data, bool writes);
  std::optional<std::string> send(std::uint64_t lba, std::span<std::uint8_t> data, bool writes);

  Device &device_;
  const std::string operation_;
  const Capacity capacity_;
};

}  // namespace tool
