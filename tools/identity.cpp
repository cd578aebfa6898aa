#include "tools/identity.h"

#include <array>

#include "base/designators.h"
#include "kzddl/kzmisc_identity.h"
#include "tools/command.h"
#include "tools/error.h"
#include "tools/inquiry.h"
#include "tools/vpd.h"

namespace tool {
namespace {

using LunId = std::array<char, KZDDL_LUN_ID_SIZE>;

std::string cabinet_of(Device &device) {
  std::array<char, KZDDL_CABINET_ID_SIZE> serial{};
  if (get_cabinet_id(device.path(), serial.data()) != 0) return {};
  const std::string_view text = serial.data();
  return std::string(text.substr(0, text.find_last_not_of(' ') + 1));
}

/// The result of get_lun_id: not 0 when the device does not list its pages.
int ask_identity(Device &device, Identity &identity) {
  LunId id{};
  unsigned char kind = 0;
  const int result =
      get_lun_id(device.path(), vpd::supported_pages, id.data(), &kind, device.path()->devname);
  if (result == 0) {
    identity = {.identifier = id.data(), .kind = kind, .cabinet = cabinet_of(device)};
  }
  return result;
}

}  // namespace

Identity identify(Device &device) {
  Identity identity;
  const int result = ask_identity(device, identity);
  if (result == 0) return identity;
  // Asked once more by itself, the list tells why it does not come.
  if (result < 0) read_inquiry(device, vpd::supported_pages, "identify");
  throw Error("identify", device.name(), result_words(result));
}

Identity identify_or_name(Device &device) {
  Identity identity;
  if (ask_identity(device, identity) == 0) return identity;
  LunId id{};
  unsigned char kind = 0;
  fake_lun_id(device.path()->devname, &kind, id.data());
  return {.identifier = id.data(), .kind = kind, .cabinet = {}};
}

bool names_unit(const Identity &identity) {
  if (identity.kind == KZDDL_NO_DESIGNATOR) return false;
  constexpr unsigned association_mask = 0x30;  // 0: the logical unit
  if ((identity.kind & association_mask) != 0) return false;
  switch (identity.kind & 0x0F) {
    case kzddl::Designator::relative_port:
    case kzddl::Designator::port_group:
    case kzddl::Designator::unit_group:
    case 0x9:  // protocol specific port
      return false;
    default:
      return true;
  }
}

}  // namespace tool
