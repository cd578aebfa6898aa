// Big-endian loads and stores: SCSI data carry their most significant byte first.
#pragma once

#include <cstdint>

namespace kzddl {

constexpr std::uint16_t load_be16(const std::uint8_t *p) {
  return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}

constexpr std::uint32_t load_be24(const std::uint8_t *p) {
  return static_cast<std::uint32_t>(p[0]) << 16 | load_be16(p + 1);
}

constexpr std::uint32_t load_be32(const std::uint8_t *p) {
  return static_cast<std::uint32_t>(load_be16(p)) << 16 | load_be16(p + 2);
}

constexpr std::uint64_t load_be64(const std::uint8_t *p) {
  return static_cast<std::uint64_t>(load_be32(p)) << 32 | load_be32(p + 4);
}

constexpr void store_be16(std::uint8_t *p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 8);
  p[1] = static_cast<std::uint8_t>(v);
}

constexpr void store_be32(std::uint8_t *p, std::uint32_t v) {
  store_be16(p, static_cast<std::uint16_t>(v >> 16));
  store_be16(p + 2, static_cast<std::uint16_t>(v));
}

constexpr void store_be64(std::uint8_t *p, std::uint64_t v) {
  store_be32(p, static_cast<std::uint32_t>(v >> 32));
  store_be32(p + 4, static_cast<std::uint32_t>(v));
}

}  // namespace kzddl
