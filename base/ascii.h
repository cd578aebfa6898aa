// Character classes and letter case of the C locale, whatever locale the host program has
// set, and hexadecimal digits. Bytes 0x80 to 0xFF are neither whitespace nor printable, and
// have no case.
#pragma once

#include <cstdint>

namespace kzddl {

constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr bool is_printable(char c) { return c >= 0x20 && c <= 0x7E; }

constexpr char to_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

/// strcasecmp of the C locale as -1, 0 or 1: an order that no change of locale can break.
constexpr int compare_ignoring_case(const char *a, const char *b) {
  for (;; ++a, ++b) {
    if (*a == *b) {
      if (*a == '\0') return 0;
      continue;
    }
    const auto x = static_cast<unsigned char>(to_lower(*a));
    const auto y = static_cast<unsigned char>(to_lower(*b));
    if (x != y) return x < y ? -1 : 1;
    if (x == 0) return 0;
  }
}

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
