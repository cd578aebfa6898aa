// Character classes of the C locale, whatever locale the host program has set,
// and hexadecimal digits. Bytes 0x80 to 0xFF are neither whitespace nor printable.
#pragma once

#include <cstdint>

namespace kzddl {

constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr bool is_printable(char c) { return c >= 0x20 && c <= 0x7E; }

inline constexpr char upper_hex_digits[] = "0123456789ABCDEF";

/// Writes 2 * n upper-case digits (high nibble first) and no terminator; returns their end.
constexpr char *write_upper_hex(char *out, const std::uint8_t *bytes, int n) {
  for (int i = 0; i < n; ++i) {
    *out++ = upper_hex_digits[bytes[i] >> 4];
    *out++ = upper_hex_digits[bytes[i] & 0x0F];
  }
  return out;
}

}  // namespace kzddl
