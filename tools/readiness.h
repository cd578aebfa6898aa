// Can a device accept commands, and if not, why?
#pragma once

#include <string>
#include <string_view>

#include "tools/command.h"

namespace tool {

struct Readiness {
  bool ready = false;
  std::string reason;            ///< why not
  std::optional<Sense> sense{};  ///< what the device said, if it said anything

  /// "ready", or "not ready" and the reason.
  std::string words() const;
};

/// What words() says, read back.
Readiness readiness_from_words(std::string_view words);

/// Sends TEST UNIT READY, twice if a unit attention is pending: the condition ends with its
/// report. Throws Error when the command cannot be handed to the device.
Readiness test_unit_ready(Device &device);

}  // namespace tool
