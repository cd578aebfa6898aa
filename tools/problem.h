// A question that a device failed to answer, as it is told and kept.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/error.h"
#include "tools/view.h"

namespace tool {

struct Problem {
  std::string operation;  ///< the subcommand that asks the same, with its options
  std::string reason;
  std::optional<Sense> sense{};  ///< where the device gave sense data

  explicit Problem(const Error &error)
      : operation(error.operation()), reason(error.reason()), sense(error.sense()) {}
  Problem(std::string_view asked, std::string_view why, const std::optional<Sense> &said)
      : operation(asked), reason(why), sense(said) {}

  /// Not being ready, which a path's readiness tells by itself.
  bool is_readiness() const { return operation == "ready"; }
  /// "capacity: timed out".
  std::string words() const { return operation + ": " + reason; }
  Json json() const;

  /// The words, and the sense data's key, ASC and ASCQ behind them: "... (3/11/00)".
  std::string stored() const;
  /// What stored() says, read back.
  static Problem from_stored(std::string_view text);
};

/// Key, ASC and ASCQ as numbers, or null.
Json sense_json(const std::optional<Sense> &sense);

}  // namespace tool
