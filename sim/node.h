// A device node: a path to a device.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "sim/device.h"

namespace sim {

enum class NodeKind { block, character };

struct Node {
  std::string name;
  dev_t number = 0;
  NodeKind kind = NodeKind::block;
  std::shared_ptr<Device> device;
  Port port{};
  std::string initiator = default_initiator;
  std::string address{};  ///< what the kernel calls the device, "0:0:1:3"; empty: no SCSI device
  std::uint64_t sectors = 0;      ///< of 512 bytes, as the kernel learned it; 0: it could not
  std::string state = "running";  ///< what the kernel says of the SCSI device
};

}  // namespace sim
