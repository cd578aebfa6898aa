// Assertions that stay on in release builds and print in the C library's form:
// program, source file, line, function and text, then abort.
#pragma once

#include <cstring>

extern "C" [[noreturn]] void __assert_fail(const char *text, const char *file, unsigned line,
                                           const char *function) noexcept;

namespace kzddl {

/// Stops the process unless `holds`; `text` is what the report quotes.
inline void check(bool holds, const char *text, const char *file = __builtin_FILE(),
                  unsigned line = __builtin_LINE(), const char *function = __builtin_FUNCTION()) {
  if (holds) [[likely]]
    return;
  const char *slash = std::strrchr(file, '/');
  __assert_fail(text, slash != nullptr ? slash + 1 : file, line, function);
}

}  // namespace kzddl
