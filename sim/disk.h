// A simulated disk: one logical unit with its state, behind any number of paths.
//
// Thread safety: every function may be called from any thread; one mutex guards the state, so
// that commands are carried out one after another.
#pragma once

#include <mutex>
#include <optional>

#include "sim/command_rules.h"
#include "sim/device.h"
#include "sim/disk_spec.h"
#include "sim/mode_pages.h"
#include "sim/port_groups.h"
#include "sim/reservations.h"
#include "sim/state_file.h"
#include "sim/storage.h"
#include "sim/unit_attentions.h"

namespace sim {

class Disk : public Device {
 public:
  explicit Disk(DiskSpec spec);

  void connect(const Nexus &nexus) override;
  void keep_in(const std::filesystem::path &directory, const std::string &name) override;
  std::vector<TargetPortGroup> target_port_groups() override;
  std::optional<std::uint64_t> sectors() const override {
    return spec_.blocks * (spec_.block_size / 512);
  }
  Reply execute(const Command &command, const Port &port) override;

 private:
  class SharedState;

  Reply answer(const Command &command, const Port &port);
  /// Ends a command that must not be carried out now.
  void admit(const CommandRule &rule, const Nexus &nexus, const Port &port);
  Bytes perform(const Command &command, const Nexus &nexus, const Port &port);

  void persistent_reserve_out(const Command &command, const Nexus &nexus);
  void set_target_port_groups(const Command &command, const Nexus &nexus);
  Bytes request_sense(const Command &command, const Nexus &nexus);
  Bytes read_capacity_10(const Command &command) const;
  Bytes read_capacity_16(const Command &command) const;
  Bytes read(const Command &command) const;
  void write(const Command &command);
  void require_range(std::uint64_t lba, std::uint32_t count) const;
  /// Sense data in the format that the control mode page selects.
  Bytes format(const Sense &sense) const;

  const DiskSpec spec_;
  std::mutex mutex_;
  Storage storage_;
  ModePages modes_;
  UnitAttentions attentions_;
  Reservations reservations_{attentions_};
  PortGroups groups_;
  std::optional<StateFile> file_;  ///< where groups, reservations and attentions are kept
};

}  // namespace sim
