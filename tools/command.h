// Commands to a device: any CDB with its sense data, and the results of the library's own
// commands in words.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "tools/device.h"
#include "tools/scsi_words.h"
#include "tools/text.h"

namespace tool {

/// The data of a command. `bytes` are written to when they come from the device.
struct Data {
  enum class Direction { none, from_device, to_device };

  Direction direction = Direction::none;
  std::span<std::uint8_t> bytes{};
};

/// How a command that reached the device ended.
struct Completion {
  std::uint8_t status = 0;      ///< SCSI status
  unsigned combined = 0;        ///< host, masked and driver status together
  std::size_t transferred = 0;  ///< bytes of data that moved
  std::optional<Sense> sense{};

  /// The masked status alone would take TASK ABORTED (40h) for GOOD.
  bool ok() const { return combined == 0 && status == scsi_status::good; }
  bool is_unit_attention() const { return sense && sense->key == sense_key::unit_attention; }
  /// Did the device not answer? It may have carried the command out all the same.
  bool is_unanswered() const { return !ok() && status == scsi_status::good && !sense; }
  /// Why it is not ok, in words.
  std::string reason() const;
};

/// Do commands go to the opened node, past the multipath driver?
bool is_direct_route();

/// Sends `cdb`. Throws Error, which names `operation`, when it cannot be handed to the device.
Completion send_command(Device &device, ByteSpan cdb, const Data &data, std::string_view operation);

// Where commands go through the control node and that cannot be opened, both throw Error, which
// names `operation`: for a failure whose result may mean either, and before many nodes are asked.
void require_control_node(const Device &device, std::string_view operation);
void require_control_node(std::string_view operation);

/// Throws Error, which names `operation`, on IA-64: the only requests that the library has there
/// succeed, with zeros for data, when they never reach the device. For commands on whose success
/// data or fencing rest.
void require_told_outcomes(const Device &device, std::string_view operation);

/// What a result of the library's command families says: 0 aside, errno of a failed call, or
/// a negated status.
std::string result_words(int result);

}  // namespace tool
