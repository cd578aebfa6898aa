#include "tools/identity.h"

#include <array>

#include "kzddl/kzmisc_identity.h"
#include "tools/command.h"
#include "tools/error.h"

namespace tool {
namespace {

using LunId = std::array<char, KZDDL_LUN_ID_SIZE>;

std::string cabinet_of(Device &device) {
  std::array<char, KZDDL_CABINET_ID_SIZE> serial{};
  return get_cabinet_id(device.path(), serial.data()) == 0 ? serial.data() : std::string();
}

}  // namespace

Identity identify(Device &device) {
  LunId id{};
  unsigned char kind = 0;
  const int result = get_lun_id(device.path(), 0, id.data(), &kind, device.path()->devname);
  if (result != 0) throw Error("identify", device.name(), result_words(result));
  return {.identifier = id.data(), .kind = kind, .cabinet = cabinet_of(device)};
}

Identity identify_or_name(Device &device) {
  try {
    return identify(device);
  } catch (const Error &) {
    LunId id{};
    unsigned char kind = 0;
    fake_lun_id(device.path()->devname, &kind, id.data());
    return {.identifier = id.data(), .kind = kind, .cabinet = {}};
  }
}

bool names_unit(const Identity &identity) {
  if (identity.kind == KZDDL_NO_DESIGNATOR) return false;
  constexpr unsigned association_mask = 0x30;  // 0: the logical unit
  if ((identity.kind & association_mask) != 0) return false;
  switch (identity.kind & 0x0F) {
    case 0x4:  // relative target port
    case 0x5:  // target port group
    case 0x6:  // logical unit group
    case 0x9:  // protocol specific port
      return false;
    default:
      return true;
  }
}

}  // namespace tool
