// What goes wrong: one line on standard error, and the exit status that it leads to.
#pragma once

#include <fmt/core.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tools/scsi_words.h"
#include "tools/text.h"

namespace tool {

enum ExitStatus { exit_success = 0, exit_device_failed = 1, exit_usage = 2 };

/// The only exception that the tool's own code throws.
class Error : public std::runtime_error {
 public:
  /// A request to a device failed. `node` is as it is shown; `sense` is what the device said.
  Error(std::string_view operation, std::string_view node, std::string_view reason,
        const std::optional<Sense> &sense = {})
      : std::runtime_error(fmt::format("{} {}: {}", operation, node, reason)),
        operation_(operation),
        reason_(reason),
        sense_(sense) {}

  /// The command line, or a file that it names, is no good; `what` may quote either.
  static Error usage(std::string_view what) { return {escaped(what), exit_usage}; }
  /// Something that is neither a device's fault nor the user's.
  static Error failure(std::string_view what) { return {escaped(what), exit_device_failed}; }

  const std::string &operation() const { return operation_; }
  /// Without the operation and the node.
  const std::string &reason() const { return reason_; }
  const std::optional<Sense> &sense() const { return sense_; }
  /// Did the device answer that it does not know what it was asked? That is no failure to answer.
  bool is_unsupported() const { return sense_ && tool::is_unsupported(*sense_); }
  int exit_status() const { return exit_status_; }

 private:
  Error(const std::string &what, int exit_status)
      : std::runtime_error(what), reason_(what), exit_status_(exit_status) {}

  std::string operation_;
  std::string reason_;
  std::optional<Sense> sense_;
  int exit_status_ = exit_device_failed;
};

}  // namespace tool
