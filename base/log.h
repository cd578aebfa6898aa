// What goes with each message to the diagnostic log.
#pragma once

#include <cstdint>

namespace kzddl::log {

inline constexpr std::uint32_t facility = 0x70000;

// Levels.
inline constexpr std::uint32_t output = 0;  ///< what a caller asked to see
inline constexpr std::uint32_t notice = 1;
inline constexpr std::uint32_t failure = 9;

}  // namespace kzddl::log
