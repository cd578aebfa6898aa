// INQUIRY as the tool asks it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "tools/device.h"

namespace tool {

/// Standard data, or a VPD page when `page` names one; never empty. Throws Error on failure.
std::vector<std::uint8_t> read_inquiry(Device &device, std::optional<std::uint8_t> page);

}  // namespace tool
