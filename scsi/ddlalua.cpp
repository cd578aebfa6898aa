// Decoders of target port group replies and of the Device Identification page.
#include "kzddl/ddlalua.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/ascii.h"
#include "base/bytes.h"

using namespace kzddl;

namespace {

constexpr int header_size = 4;
constexpr int max_size = 255;  // of a reply or page, as the commands read them
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

constexpr int binary = 1;
constexpr int logical_unit = 0x00;
constexpr int target_port = 0x10;

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
  const int end = std::min(page[3] + header_size, max_size);
  // The page copied from one descriptor on, with zeros behind its end.
  std::array<std::uint8_t, 20> entry;
  for (int at = header_size; at < end; at += entry[3] + header_size) {
    const int inside = std::min(end - at, static_cast<int>(entry.size()));
    std::fill(std::copy_n(page + at, inside, entry.begin()), entry.end(), std::uint8_t{0});
    if ((entry[0] & 0x0F) != binary) continue;
    const int association = entry[1] & 0x30;
    const unsigned value = load_be32(&entry[4]);
    switch (entry[1] & 0x0F) {
      case 3:  // NAA
        if (association != logical_unit || naa == nullptr) break;
        *write_upper_hex(naa, &entry[4], 16) = '\0';
        break;
      case 4:
        if (association == target_port) *relative_port = value;
        break;
      case 5:
        if (association == target_port) *port_group = value;
        break;
      case 6:
        if (association == logical_unit) *unit_group = value;
        break;
      default:
        break;
    }
  }
  return 0;
}
