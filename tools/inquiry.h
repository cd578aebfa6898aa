// INQUIRY as the tool asks it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "tools/device.h"
#include "tools/text.h"

namespace tool {

/// Byte 4 of standard data counts those behind it.
inline constexpr std::size_t standard_inquiry_header_size = 5;

/// Standard data, or all of a VPD page when `page` names one; not shorter than their headers.
/// Throws Error, which names `operation`, on failure.
std::vector<std::uint8_t> read_inquiry(Device &device, std::optional<std::uint8_t> page,
                                       std::string_view operation = "inquiry");

/// A device that knows no pages may answer with something else: throws Error then.
void require_page(const Device &device, ByteSpan reply, std::uint8_t page,
                  std::string_view operation = "inquiry");

/// The VPD pages of a device. Having no such page and failing to tell are two things.
class VpdPages {
 public:
  /// Asks which there are. Throws Error unless the device tells, or says that it knows none.
  explicit VpdPages(Device &device);

  /// Nothing when the device has no such page. Throws Error when it does not tell.
  std::optional<std::vector<std::uint8_t>> read(std::uint8_t page);

 private:
  Device &device_;
  std::vector<std::uint8_t> listed_;
};

}  // namespace tool
