// Blocks from malloc that free themselves: callers of the library release what they
// receive with free, so every buffer inside is made the same way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace kzddl {

struct FreeBlock {
  void operator()(void *p) const { std::free(p); }
};

template <class T>
using Owned = std::unique_ptr<T, FreeBlock>;

using Buffer = Owned<std::uint8_t[]>;

/// `size` zero bytes, or null when memory is short. Not from calloc: a host's own malloc and free
/// may stand before the C library's without one.
inline void *zeroed_block(std::size_t size) {
  void *block = std::malloc(size);
  if (block != nullptr) std::memset(block, 0, size);
  return block;
}

inline Buffer zeroed_buffer(std::size_t size) {
  return Buffer(static_cast<std::uint8_t *>(zeroed_block(size)));
}

/// `count` zero-filled records or pointers, or null when memory is short.
template <class T>
Owned<T[]> zeroed_array(std::size_t count) {
  constexpr std::size_t size = sizeof(T);  // NOLINT(bugprone-sizeof-expression): of the pointer
  if (count > SIZE_MAX / size) return nullptr;
  return Owned<T[]>(static_cast<T *>(zeroed_block(count * size)));
}

/// A zero-filled record with `extra` bytes right behind it, or null when memory is short.
template <class T>
Owned<T> zeroed_record(std::size_t extra = 0) {
  return Owned<T>(static_cast<T *>(zeroed_block(sizeof(T) + extra)));
}

/// A copy of `n` bytes, or null when memory is short.
inline Buffer duplicate(const void *bytes, std::size_t n) {
  Buffer copy(static_cast<std::uint8_t *>(std::malloc(n)));
  if (copy != nullptr && n != 0) std::memcpy(copy.get(), bytes, n);
  return copy;
}

/// memcpy for a length that may be 0, where either pointer may then be null.
inline void copy_bytes(void *to, const void *from, std::size_t n) {
  if (n != 0) std::memcpy(to, from, n);
}

}  // namespace kzddl
