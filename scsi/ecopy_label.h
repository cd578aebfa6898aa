// Labels of the extended-copy printers, all of one width.
#pragma once

#include <array>
#include <cstdio>

namespace kzddl {

/// Writes text, cut or padded with spaces, and a NUL: `width` bytes, unless that is below 1.
inline void pad(const char *text, char *dst, int width) {
  if (width < 1) return;
  int at = 0;
  while (at < width - 1 && text[at] != '\0') {
    dst[at] = text[at];
    ++at;
  }
  while (at < width - 1)
    dst[at++] = ' ';
  dst[width - 1] = '\0';
}

/// A label padded to the printers' width.
class Label {
 public:
  explicit Label(const char *text) { pad(text, padded_.data(), width); }
  const char *text() const { return padded_.data(); }

 private:
  static constexpr int width = 50;
  std::array<char, width> padded_;
};

inline void print_hex_field(const char *label, unsigned value) {
  std::printf("\t%s: 0x%x\n", Label(label).text(), value);
}

}  // namespace kzddl
