// INQUIRY as the tool asks it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "tools/device.h"

namespace tool {

/// Byte 4 of standard data counts those behind it.
inline constexpr std::size_t standard_inquiry_header_size = 5;

/// Standard data, or a VPD page when `page` names one; not shorter than their headers. Throws
/// Error, which names `operation`, on failure.
std::vector<std::uint8_t> read_inquiry(Device &device, std::optional<std::uint8_t> page,
                                       std::string_view operation = "inquiry");

}  // namespace tool
