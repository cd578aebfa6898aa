// Labels of the extended-copy printers, all of one width.
#pragma once

#include <array>
#include <cstdio>

#include "kzddl/kzecopy.h"

namespace kzddl {

/// A label padded to the printers' width.
class Label {
 public:
  explicit Label(const char *text) { padstring(text, padded_.data(), width); }
  const char *text() const { return padded_.data(); }

 private:
  static constexpr int width = 50;
  std::array<char, width> padded_;
};

inline void print_hex_field(const char *label, unsigned value) {
  std::printf("\t%s: 0x%x\n", Label(label).text(), value);
}

}  // namespace kzddl
