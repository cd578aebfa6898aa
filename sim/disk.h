// A simulated disk: one logical unit with its state, behind any number of paths.
#pragma once

#include <optional>
#include <string>

#include "sim/device.h"

namespace sim {

struct DiskSpec {
  std::string vendor = "KZSIM";
  std::string product = "VIRTUAL DISK";
  std::string revision = "0100";
  std::string serial{};            ///< Unit Serial Number page; no such page when empty
  Bytes naa{};                     ///< NAA designator of 8 or 16 bytes; none when empty
  std::optional<Sense> not_ready;  ///< why TEST UNIT READY fails
};

class Disk : public Device {
 public:
  explicit Disk(DiskSpec spec) : spec_(std::move(spec)) {}

  Reply execute(const Command &command, const Port &port) override;

 private:
  Reply inquiry(const Command &command, const Port &port) const;
  Bytes standard_data() const;
  Bytes supported_pages() const;
  Bytes identification(const Port &port) const;

  const DiskSpec spec_;
};

}  // namespace sim
