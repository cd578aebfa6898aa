#include "sim/storage.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::size_t chunk_size = 65536;

}  // namespace

Storage::Storage(std::uint64_t blocks, std::uint32_t block_size)
    : blocks_(blocks), block_size_(block_size) {}

bool Storage::contains(std::uint64_t lba, std::uint64_t count) const {
  return lba < blocks_ && count <= blocks_ - lba;
}

template <class Visit>
void Storage::for_each_chunk(std::uint64_t lba, std::size_t size, Visit visit) const {
  const std::uint64_t blocks_per_chunk = chunk_size / block_size_;
  std::uint64_t chunk = lba / blocks_per_chunk;
  std::size_t offset = static_cast<std::size_t>(lba % blocks_per_chunk) * block_size_;
  for (std::size_t position = 0; position < size; ++chunk, offset = 0) {
    const std::size_t length = std::min(size - position, chunk_size - offset);
    visit(chunk, offset, position, length);
    position += length;
  }
}

Bytes Storage::read(std::uint64_t lba, std::size_t count) const {
  Bytes data(count * block_size_);
  for_each_chunk(lba, data.size(), [&](auto chunk, auto offset, auto position, auto length) {
    const auto found = chunks_.find(chunk);
    if (found != chunks_.end()) {
      std::copy_n(&found->second[offset], length, &data[position]);
    }
  });
  return data;
}

void Storage::write(std::uint64_t lba, std::span<const std::uint8_t> data) {
  for_each_chunk(lba, data.size(), [&](auto chunk, auto offset, auto position, auto length) {
    Bytes &bytes = chunks_[chunk];
    bytes.resize(chunk_size);
    std::copy_n(&data[position], length, &bytes[offset]);
  });
}

}  // namespace sim
