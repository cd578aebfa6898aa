// The designation descriptors of a Device Identification page (0x83), and the walk over them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kzddl {

/// One descriptor. A page may end inside its last one; what is missing of its header is zero.
struct Designator {
  enum CodeSet { binary = 1 };
  enum Association { logical_unit = 0x00, target_port = 0x10 };
  enum Type { naa = 3, relative_port = 4, port_group = 5, unit_group = 6 };

  int code_set() const { return code_byte & 0x0F; }
  int association() const { return type_byte & 0x30; }
  int type() const { return type_byte & 0x0F; }

  std::uint8_t code_byte;
  std::uint8_t type_byte;
  std::uint8_t length;                 ///< of the designator, as announced
  std::span<const std::uint8_t> rest;  ///< of the page, from the designator on
};

/// Hands the page's descriptors to `use`, one by one. Of the page's length only the low byte
/// counts, and no more than the 255 bytes that commands read.
template <class Use>
void for_each_designator(const std::uint8_t *page, const Use &use) {
  constexpr int header_size = 4;  // of the page, and of a descriptor
  const int end = std::min(page[3] + header_size, 255);
  const auto byte = [=](int at) { return at < end ? page[at] : std::uint8_t{0}; };
  for (int at = header_size; at < end; at += header_size + byte(at + 3)) {
    const int designator = std::min(at + header_size, end);
    use(Designator{byte(at), byte(at + 1), byte(at + 3), {page + designator, page + end}});
  }
}

}  // namespace kzddl
