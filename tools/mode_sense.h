// MODE SENSE (6): mode parameters asked of a device, and what its refusal says.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
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

/// Asks for at most 255 bytes.
std::array<std::uint8_t, 6> mode_sense_cdb(const ModeQuestion &question);

/// The mode parameter list, at most 255 bytes of it. Throws Error, which names `operation`.
std::vector<std::uint8_t> read_modes(Device &device, const ModeQuestion &question,
                                     std::string_view operation = "modes");

/// Does another host keep this one from asking? Throws Error when the device does not answer for
/// another reason.
bool is_reserved_elsewhere(Device &device);

}  // namespace tool
