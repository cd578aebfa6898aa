// Decoders of target port group replies and of the Device Identification page.
#include "kzddl/ddlalua.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/ascii.h"
#include "base/bytes.h"
#include "base/designators.h"

using namespace kzddl;

namespace {

constexpr int header_size = 4;
constexpr int max_size = 255;  // of a reply, as the command reads it
constexpr int preferred = 0x80;

/// Walks the descriptors of a port group reply until `found` says so; the descriptor it stopped
/// at, or null. The first one is looked at whenever the reply promises anything.
template <class Found>
const std::uint8_t *find_group(const std::uint8_t *reply, const Found &found) {
  const auto promised = static_cast<std::int32_t>(load_be32(reply));
  if (promised <= 0) return nullptr;
  int walked = 0;
  do {
    const int at = header_size + walked;
    if (at + 4 > max_size) return nullptr;
    if (found(reply + at)) return reply + at;
    if (at + 8 > max_size) return nullptr;
    walked += 8 + 4 * reply[at + 7];
  } while (walked < promised);
  return nullptr;
}

const std::uint8_t *find_group(const std::uint8_t *reply, int group) {
  return find_group(reply,
                    [group](const std::uint8_t *entry) { return load_be16(entry + 2) == group; });
}

}  // namespace

int get_owner_state(const unsigned char *reply, int group) {
  const std::uint8_t *entry = find_group(reply, group);
  return entry != nullptr ? entry[0] & 0x0F : -1;
}

int get_pref_state(const unsigned char *reply, int group) {
  const std::uint8_t *entry = find_group(reply, group);
  return entry != nullptr ? entry[0] & preferred : -1;
}

int get_other_pref_state(const unsigned char *reply, int group) {
  const std::uint8_t *entry = find_group(reply, [group](const std::uint8_t *candidate) {
    return load_be16(candidate + 2) != group && (candidate[0] & preferred) != 0;
  });
  return entry != nullptr ? preferred : 0;
}

int get_dev_id_page(const unsigned char *page, char *naa, unsigned *port_group,
                    unsigned *relative_port, unsigned *unit_group) {
  for_each_designator(page, [&](const Designator &designator) {
    if (designator.code_set() != Designator::binary) return;
    // With zeros behind the page's end.
    std::array<std::uint8_t, 16> bytes{};
    std::copy_n(designator.rest.begin(), std::min(designator.rest.size(), bytes.size()),
                bytes.begin());
    const std::uint32_t value = load_be32(bytes.data());
    // A cut number would be another one: 0 is a group too.
    const std::size_t number_size = std::max<std::size_t>(designator.length, sizeof value);
    if (designator.type() != Designator::naa && number_size > designator.rest.size()) return;
    const bool of_unit = designator.association() == Designator::logical_unit;
    const bool of_port = designator.association() == Designator::target_port;
    switch (designator.type()) {
      case Designator::naa:
        if (of_unit && naa != nullptr) *write_upper_hex(naa, bytes.data(), bytes.size()) = '\0';
        break;
      case Designator::relative_port:
        if (of_port) *relative_port = value;
        break;
      case Designator::port_group:
        if (of_port) *port_group = value;
        break;
      case Designator::unit_group:
        if (of_unit) *unit_group = value;
        break;
      default:
        break;
    }
  });
  return 0;
}
