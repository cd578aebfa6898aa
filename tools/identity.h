// Who a device is: the library's identifiers of the logical unit and of its cabinet.
#pragma once

#include <cstdint>
#include <string>

#include "tools/device.h"

namespace tool {

/// Texts are as the device gave them.
struct Identity {
  std::string identifier;
  std::uint8_t kind = 0;  ///< byte 1 of the designator; KZDDL_NO_DESIGNATOR for the node's name
  std::string cabinet;    ///< empty when the device has no serial number
};

/// Asks for both; where the device offers no identifier the node's name stands in. Throws Error
/// when the device does not list its pages.
Identity identify(Device &device);

/// The same, but the node's name stands in there too.
Identity identify_or_name(Device &device);

/// Is the identifier one of the logical unit, so that nodes that share it lead to one unit?
bool names_unit(const Identity &identity);

}  // namespace tool
