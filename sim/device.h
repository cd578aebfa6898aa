// What stands behind a node: a device that answers SCSI commands.
#pragma once

#include <cstdint>
#include <span>

#include "sim/scsi.h"

namespace sim {

/// A command as it reaches the device.
struct Command {
  std::span<const std::uint8_t> cdb;
  std::span<const std::uint8_t> data_out;
};

/// What the device, the host adapter and the driver answer.
struct Reply {
  std::uint8_t status = status::good;
  Bytes data{};   ///< for the host; cut by the host where the request has less room
  Bytes sense{};  ///< with CHECK CONDITION
  std::uint16_t host_status = 0;

  static Reply with(Bytes data) { return {.data = std::move(data)}; }
  static Reply check_condition(const Sense &sense) {
    return {.status = status::check_condition, .sense = sense.fixed()};
  }
};

/// The target port that a path leads to.
struct Port {
  std::uint16_t relative_id = 1;
  std::uint16_t group = 1;
};

class Device {
 public:
  virtual ~Device() = default;
  /// Answers one command that came in through `port`. May be called from any thread.
  virtual Reply execute(const Command &command, const Port &port) = 0;
};

}  // namespace sim
