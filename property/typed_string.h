// A value as the database takes it: the one conversion of plain text into a typed string.
#pragma once

#include <cstring>

#include "nv/ddlts.h"

namespace kzddl {

/// A typed string that refers to its source or holds a copy of its own.
class TypedString {
 public:
  /// Plain text longer than this is no value: a cut one would be another value.
  static bool fits(const char *s) {
    return is_typed(s) || strnlen(s, KZDDL_TS_MAX_PAYLOAD + 1) <= KZDDL_TS_MAX_PAYLOAD;
  }

  TypedString() = default;

  /// Refers to `s` when it is typed, else holds its text as type 0; false when that is too long.
  explicit TypedString(const char *s) : typed_(s) {
    if (!is_typed(s)) convert(s);
  }

  TypedString(const TypedString &) = delete;
  TypedString &operator=(const TypedString &) = delete;

  /// Keeps a copy of a typed string, which may then go away.
  void copy(const char *typed) {
    ts_copy(buffer_, typed);
    typed_ = buffer_;
  }

  explicit operator bool() const { return typed_ != nullptr; }
  const char *get() const { return typed_; }
  const char *text() const { return text_of(typed_); }
  unsigned length() const { return payload_length(typed_); }

 private:
  void convert(const char *plain) {
    const std::size_t length = strnlen(plain, KZDDL_TS_MAX_PAYLOAD + 1);
    if (length > KZDDL_TS_MAX_PAYLOAD) {
      typed_ = nullptr;
      return;
    }
    buffer_[0] = KZDDL_TS_MARKER;
    buffer_[1] = KZDDL_TS_TEXT;
    buffer_[2] = static_cast<char>(length);
    std::memcpy(buffer_ + KZDDL_TS_HEADER_SIZE, plain, length);
    buffer_[KZDDL_TS_HEADER_SIZE + length] = '\0';
    typed_ = buffer_;
  }

  const char *typed_ = nullptr;
  char buffer_[KZDDL_TS_HEADER_SIZE + KZDDL_TS_MAX_PAYLOAD + 1];
};

}  // namespace kzddl
