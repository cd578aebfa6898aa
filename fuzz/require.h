// What must hold whatever bytes come in, and bytes where a sanitizer sees every step past them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace fuzz {

/// Stops the process: something that must hold does not.
inline void require(bool holds) {
  if (!holds) std::abort();
}

/// A block of just `size` bytes: the input's, then zeros.
inline std::vector<std::uint8_t> block(const std::uint8_t *data, std::size_t available,
                                       std::size_t size) {
  std::vector<std::uint8_t> bytes(data, data + std::min(available, size));
  bytes.resize(size);
  bytes.shrink_to_fit();
  return bytes;
}

}  // namespace fuzz
