// Who a device is: the identifiers of the logical unit and of its cabinet.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/device.h"
#include "tools/error.h"

namespace tool {

/// A name of a logical unit. Texts are as the device gave them.
struct UnitName {
  std::string identifier;
  std::uint8_t kind = 0;  ///< byte 1 of the designator; KZDDL_NO_DESIGNATOR for the node's name
};

struct Identity : UnitName {
  std::string cabinet;                 ///< empty when the device has no serial number
  std::optional<Error> cabinet_error;  ///< why it did not tell whether it has one
  std::vector<std::uint8_t> page83;    ///< Device Identification; empty when there is no such page
};

/// Asks for all of it. The node's name stands in where the device has no designator of the logical
/// unit. Throws Error when it does not tell whether it has one: then nothing is known of the unit.
Identity identify(Device &device);

/// What the library's get_lun_id() makes of the same page.
UnitName name_by_library(Device &device, const Identity &identity);

/// Is it one that the unit has, so that nodes that share it lead to one unit?
bool names_unit(const UnitName &name);

}  // namespace tool
