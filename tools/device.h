// Device nodes: one that is examined, and those that the host has.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kzddl/odh.h"

namespace tool {

struct DeviceNumber {
  unsigned major = 0;
  unsigned minor = 0;

  /// "8:16".
  std::string text() const;
};

/// A device node and the path record that every command takes.
class Device {
 public:
  /// Examines `node`; throws Error when there is no device node of that name.
  explicit Device(const std::string &node);

  odh *path() { return &path_; }
  /// The node's name as it is shown.
  const std::string &name() const { return name_; }
  DeviceNumber number() const;
  bool is_block() const { return is_block_; }
  /// What the kernel calls the device behind the node: host, channel, target and unit, "1:0:0:3".
  /// Empty where it is none of the kernel's SCSI devices.
  std::string address() const;

 private:
  odh path_{};
  bool is_block_ = false;
  std::string name_;
};

/// Is `node` one of the multipath driver's?
bool is_multipath(std::string_view node);

/// The name of a multipath node without its directory: "disk0".
std::string_view multipath_name(std::string_view node);

/// The nodes of the host: the kernel's SCSI disks in the order of their names, also those whose
/// size it could not read, then the raw nodes of the multipath driver by name. Throws Error when
/// they cannot be listed.
std::vector<std::string> find_nodes();

}  // namespace tool
