#include "tools/identity.h"

#include <algorithm>
#include <array>

#include "kzddl/kzmisc_identity.h"
#include "kzddl/kzmisc_text.h"
#include "tools/inquiry.h"
#include "tools/vpd.h"

namespace tool {
namespace {

using LunId = std::array<char, KZDDL_LUN_ID_SIZE>;

UnitName node_name(Device &device) {
  LunId id{};
  unsigned char kind = 0;
  fake_lun_id(device.path()->devname, &kind, id.data());
  return {.identifier = id.data(), .kind = kind};
}

UnitName unit_name(Device &device, ByteSpan page83) {
  for (const Designator &designator : designators(page83)) {
    if (designator.chosen) return {identifier_text(designator.bytes), designator.kind};
  }
  return node_name(device);
}

/// As get_cabinet_id() makes it of Unit Serial Number.
std::string cabinet_of(ByteSpan page80) {
  const ByteSpan serial = VpdPage(page80).body;
  std::array<char, KZDDL_CABINET_ID_SIZE> id{};
  const auto size = std::min(serial.size(), id.size() - 1);
  bascii_copy(id.data(), serial.data(), static_cast<std::int32_t>(size), id.size());
  const std::string_view text = id.data();
  return std::string(text.substr(0, text.find_last_not_of(' ') + 1));
}

}  // namespace

Identity identify(Device &device) {
  VpdPages pages(device);
  Identity identity;
  identity.page83 = pages.read(vpd::device_identification).value_or(std::vector<std::uint8_t>{});
  static_cast<UnitName &>(identity) = unit_name(device, identity.page83);
  try {
    if (const auto page80 = pages.read(vpd::unit_serial_number))
      identity.cabinet = cabinet_of(*page80);
  } catch (const Error &error) {
    identity.cabinet_error = error;
  }
  return identity;
}

UnitName name_by_library(Device &device, const Identity &identity) {
  std::array<std::uint8_t, 255> page{};
  std::copy_n(identity.page83.begin(), std::min(identity.page83.size(), page.size()), page.begin());
  LunId id{};
  unsigned char kind = 0;
  if (get_lun_id_from_83buf(page.data(), id.data(), &kind) != 0) return node_name(device);
  return {.identifier = id.data(), .kind = kind};
}

bool names_unit(const UnitName &name) { return name.kind != KZDDL_NO_DESIGNATOR; }

}  // namespace tool
