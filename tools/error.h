// What goes wrong: one line on standard error, and the exit status that it leads to.
#pragma once

#include <fmt/core.h>

#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/text.h"

namespace tool {

enum ExitStatus { exit_success = 0, exit_device_failed = 1, exit_usage = 2 };

/// The only exception that the tool's own code throws.
class Error : public std::runtime_error {
 public:
  /// A request to a device failed. `node` is as it is shown.
  Error(std::string_view operation, std::string_view node, std::string_view reason)
      : std::runtime_error(fmt::format("{} {}: {}", operation, node, reason)), reason_(reason) {}

  /// The command line, or a file that it names, is no good; `what` may quote either.
  static Error usage(std::string_view what) { return {escaped(what), exit_usage}; }
  /// Something that is neither a device's fault nor the user's.
  static Error failure(std::string_view what) { return {escaped(what), exit_device_failed}; }

  /// Without the operation and the node.
  const std::string &reason() const { return reason_; }
  int exit_status() const { return exit_status_; }

 private:
  Error(const std::string &what, int exit_status)
      : std::runtime_error(what), reason_(what), exit_status_(exit_status) {}

  std::string reason_;
  int exit_status_ = exit_device_failed;
};

}  // namespace tool
