// The interface generation that a dispatcher finds in scsi_version.
#pragma once

namespace kzddl {

enum class Generation {
  direct,    ///< "32": on the opened device node
  indirect,  ///< "35" and any other text: through the multipath driver's control node
};

/// The generation that an `indirect` argument stands for.
constexpr Generation generation_of(int indirect) {
  return indirect != 0 ? Generation::indirect : Generation::direct;
}

/// What scsi_version says now.
Generation current_generation();

}  // namespace kzddl
