#include "sim/replay.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "base/bytes.h"
#include "capture/capture.h"

namespace sim {
namespace {

std::string numbered(const char *stem, std::uint8_t number) {
  char name[32];
  std::snprintf(name, sizeof name, "%s-%02x", stem, number);
  return name;
}

/// The capture that answers a command, and the room that the command gives it.
struct Wanted {
  std::string name;  ///< empty when the operation code itself is unknown
  std::size_t allocation_length = 0;
};

Wanted wanted(std::span<const std::uint8_t> cdb) {
  const std::uint8_t service_action = cdb[1] & 0x1F;
  switch (cdb[0]) {
    case opcode::inquiry:
      return {(cdb[1] & 1) != 0 ? numbered("vpd", cdb[2]) : "inquiry", kzddl::load_be16(&cdb[3])};
    case opcode::mode_sense_6: {
      const std::uint8_t page = cdb[2] & 0x3F;
      return {page == 0x3F ? "mode-sense-all" : numbered("mode-sense", page), cdb[4]};
    }
    case opcode::read_capacity_10:
      return {"read-capacity-10", 8};
    case opcode::service_action_in_16:
      if (service_action == 0x10) return {"read-capacity-16", kzddl::load_be32(&cdb[10])};
      break;
    case opcode::maintenance_in:
      if (service_action == 0x0A) return {"report-target-port-groups", kzddl::load_be32(&cdb[6])};
      break;
    case opcode::receive_copy_results:
      if (service_action == 0x03) {
        return {"receive-copy-operating-parameters", kzddl::load_be32(&cdb[10])};
      }
      break;
    case opcode::persistent_reserve_in: {
      static constexpr const char *names[] = {"pr-in-read-keys", "pr-in-read-reservation",
                                              "pr-in-report-capabilities"};
      if (service_action < std::size(names)) {
        return {names[service_action], kzddl::load_be16(&cdb[7])};
      }
      break;
    }
    default:
      break;
  }
  return {};
}

}  // namespace

Replay::Replay(const std::string &directory) {
  std::error_code error;
  for (const auto &entry : std::filesystem::directory_iterator(directory, error)) {
    if (entry.path().extension() != ".hex") continue;
    replies_[entry.path().stem().string()] = capture::load(entry.path().string());
  }
  if (error) throw capture::Error(directory + ": " + error.message());
  if (replies_.empty()) throw capture::Error(directory + ": no captured replies (*.hex)");
}

Reply Replay::execute(const Command &command, const Port & /*port*/) {
  if (command.cdb[0] == opcode::test_unit_ready) return {};
  const Wanted want = wanted(command.cdb);
  if (want.name.empty()) return Reply::check_condition(invalid_operation_code);
  const auto reply = replies_.find(want.name);
  if (reply == replies_.end()) {
    // A page that the target did not have, or a command that it did not know.
    const bool has_pages =
        command.cdb[0] == opcode::inquiry || command.cdb[0] == opcode::mode_sense_6;
    return Reply::check_condition(has_pages ? invalid_field_in_cdb : invalid_operation_code);
  }
  Bytes data = reply->second;
  data.resize(std::min(data.size(), want.allocation_length));
  return Reply::with(std::move(data));
}

}  // namespace sim
