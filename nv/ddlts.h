// The bytes of a typed string, and what walks over many values at a time needs inline.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kzddl/ddlts.h"

namespace kzddl {

inline bool is_typed(const char *s) { return s[0] == KZDDL_TS_MARKER; }

inline std::uint8_t type_of(const char *typed) { return static_cast<std::uint8_t>(typed[1]); }

inline std::uint8_t payload_length(const char *typed) {
  return static_cast<std::uint8_t>(typed[2]);
}

/// Payload of a typed string. Where a NUL ends it, text is a C string too.
inline const char *text_of(const char *typed) { return typed + KZDDL_TS_HEADER_SIZE; }

/// ts_len() of a string of any size.
inline std::size_t value_length(const char *s) {
  return is_typed(s) ? std::size_t{KZDDL_TS_HEADER_SIZE} + payload_length(s) : std::strlen(s);
}

/// ts_char().
inline char *find_in_value(const char *s, std::int32_t c) {
  if (!is_typed(s)) return const_cast<char *>(std::strchr(s, c));
  const char *end = s + value_length(s);
  return *end != '\0' && *end == c ? const_cast<char *>(end) : nullptr;
}

}  // namespace kzddl
