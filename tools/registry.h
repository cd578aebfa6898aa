// The registry of disks: what discovery learns of each node goes into the property database,
// linked with the node as a value of "DISK", and logical units are read back out of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kzddl/kzmisc_geometry.h"
#include "tools/identity.h"
#include "tools/port_groups.h"
#include "tools/problem.h"
#include "tools/readiness.h"

namespace tool {

/// Names of properties.
namespace property {
inline constexpr char disk[] = KZDDL_PROP_DISK;              ///< nodes
inline constexpr char jox_device[] = KZDDL_PROP_JOX_DEVICE;  ///< of a unit: "disk0"
inline constexpr char lun_id[] = "LUN_ID";
inline constexpr char lun_id_type[] = "LUN_ID_TYPE";  ///< byte 1 of the designator: "03"
inline constexpr char device_type[] = "DEVICE_TYPE";
inline constexpr char vendor[] = "VENDOR";
inline constexpr char product[] = "PRODUCT";
inline constexpr char revision[] = "REVISION";
inline constexpr char capacity[] = "CAPACITY";  ///< bytes; with the next one, where told
inline constexpr char block_size[] = "BLOCK_SIZE";
inline constexpr char cabinet[] = "CABINET";        ///< serial number
inline constexpr char controller[] = "CONTROLLER";  ///< cabinet or unit, and the target port
inline constexpr char device_number[] = "DEVICE_NUMBER";
inline constexpr char address[] = "SCSI_ADDRESS";       ///< "1:0:0:3", where the kernel has one
inline constexpr char port_group[] = "PORT_GROUP";      ///< number; with the next two, where told
inline constexpr char access_state[] = "ACCESS_STATE";  ///< "active/optimized"
inline constexpr char preferred[] = "PREFERRED";        ///< "yes" or "no"
inline constexpr char ready[] = "READY";                ///< "ready", or why not
inline constexpr char problem[] = "PROBLEM";            ///< each question that failed, and why
}  // namespace property

/// A node that answered. Texts are as the device gave them; empty where it gave none.
struct Disk {
  std::string node;
  UnitName name;
  std::string cabinet;
  std::string device_type;
  std::string vendor;
  std::string product;
  std::string revision;
  std::string capacity;  ///< bytes, in decimal
  std::string block_size;
  std::string controller;
  DeviceNumber number;
  std::string address;
  std::optional<AccessPath> access;
  Readiness readiness;  ///< without sense data when it is read back
  std::vector<Problem> problems;
};

/// A node that leads to a logical unit.
struct Path {
  std::string node;
  DeviceNumber number;
  std::string address;               ///< "1:0:0:3"; empty where there is none
  std::optional<AccessPath> access;  ///< nothing without port groups
  Readiness readiness;
  std::vector<Problem> problems;  ///< whatever was asked and failed; not being ready, too
};

/// All texts are escaped.
struct LogicalUnit {
  std::string identifier;
  std::uint8_t identifier_kind = 0;  ///< byte 1 of the designator that it comes from
  std::string device_type;
  std::string vendor;
  std::string product;
  std::string revision;
  std::optional<std::uint64_t> capacity;  ///< bytes
  std::optional<std::uint64_t> block_size;
  std::string cabinet;  ///< empty when it has no serial number
  std::vector<Path> multipath_nodes;
  std::vector<Path> paths;
};

/// Stores a node that answered.
void store_disk(const Disk &disk);

/// Links the nodes of each unit with the names of its multipath nodes.
void link_multipath_names();

/// Puts the nodes that lead to one logical unit together. Units and multipath nodes stand in the
/// order of `nodes`, paths by their access states, the best ones first, and then by their names.
/// Nodes that are not stored are passed over.
std::vector<LogicalUnit> read_units(const std::vector<std::string> &nodes);

}  // namespace tool
