// The interface generation that a dispatcher finds in scsi_version.
#pragma once

namespace kzddl {

enum class Generation {
  direct,    ///< "32": on the opened device node
  indirect,  ///< "35" and any other text: through the multipath driver's control node
};

/// What scsi_version says now.
Generation current_generation();

}  // namespace kzddl
