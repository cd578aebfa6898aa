// What stands behind a node: a device that answers SCSI commands.
#pragma once

#include <compare>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/disk_spec.h"
#include "sim/scsi.h"

namespace sim {

/// The initiator port of a path that names no other.
inline constexpr char default_initiator[] = "host-a";

/// The shortest CDB buffer that a device is given: the kernel clears what follows a short CDB.
inline constexpr std::size_t cdb_room = 16;

/// A command as it reaches the device.
struct Command {
  std::span<const std::uint8_t> cdb;  ///< at least `cdb_room` bytes
  std::span<const std::uint8_t> data_out;
  std::string initiator = default_initiator;  ///< the initiator port that sent it
};

/// What the device, the host adapter and the driver answer.
struct Reply {
  std::uint8_t status = status::good;
  Bytes data{};   ///< for the host; cut by the host where the request has less room
  Bytes sense{};  ///< with CHECK CONDITION
  std::uint16_t host_status = 0;
  std::optional<std::uint16_t> driver_status{};  ///< the kernel's own when empty
  std::optional<std::int32_t> residual{};        ///< what was not transferred when empty
  int error = 0;                                 ///< unless 0: the ioctl fails with this errno

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

/// An initiator port and a target port: whom a target knows reservations and unit attentions by.
struct Nexus {
  std::string initiator;
  std::uint16_t target_port = 0;

  auto operator<=>(const Nexus &) const = default;
};

class Device {
 public:
  virtual ~Device() = default;
  /// A path leads to the device from now on.
  virtual void connect(const Nexus & /*nexus*/) {}
  /// Keeps its state in `directory` from now on, under a name of its own or else under `name`,
  /// and goes on from what is kept there. Throws StateError.
  virtual void keep_in(const std::filesystem::path & /*directory*/, const std::string & /*name*/) {}
  /// The target port groups as they are now; none without asymmetric access.
  virtual std::vector<TargetPortGroup> target_port_groups() { return {}; }
  /// Its size in units of 512 bytes, if it is known without a command.
  virtual std::optional<std::uint64_t> sectors() const { return std::nullopt; }
  /// Answers one command that came in through `port`. May be called from any thread.
  virtual Reply execute(const Command &command, const Port &port) = 0;
};

}  // namespace sim
