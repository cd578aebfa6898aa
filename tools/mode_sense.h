// MODE SENSE (6): mode parameters asked of a device, and what its refusal says.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/device.h"

namespace tool {

/// Which values of the parameters, by their code in the command.
enum class ModeValues : std::uint8_t { current, changeable, defaults, saved };

struct ModeQuestion {
  static constexpr std::uint8_t all_pages = 0x3F;

  std::uint8_t page = all_pages;
  std::uint8_t subpage = 0;
  ModeValues values = ModeValues::current;
};

/// The mode parameter list, at most 255 bytes of it. Throws Error.
std::vector<std::uint8_t> read_modes(Device &device, const ModeQuestion &question);

/// Does another host keep this one from asking? Throws Error when the device does not answer for
/// another reason.
bool is_reserved_elsewhere(Device &device);

}  // namespace tool
