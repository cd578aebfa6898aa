// Arrays of simulated disks: the built-in demonstration array, and arrays described in JSON.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/disk_spec.h"
#include "sim/host.h"

namespace sim {

/// One path to a unit, as a node of the host.
struct PathSpec {
  std::string node;
  dev_t number = 0;
  NodeKind kind = NodeKind::block;
  Port port{};
  std::shared_ptr<Device> device;
  std::string initiator{};  ///< the host's own when empty
  std::string address{};    ///< "0:0:1:3"; none when empty
  std::vector<Fault> faults{};
  std::vector<std::string> links{};  ///< more names of the node
  std::string state = "running";     ///< what the kernel says of the SCSI device
  bool capacity_known = true;        ///< to the kernel
};

/// A logical unit: its paths, and the name of its multipath nodes (none when empty).
struct UnitSpec {
  std::string multipath;
  std::vector<PathSpec> paths;
  std::size_t best_path = 0;  ///< what the multipath nodes lead to, at first
};

/// A host at the array, as the environment names it.
struct HostSpec {
  std::string initiator = default_initiator;  ///< of paths that name none
  std::filesystem::path store{};  ///< directory where units keep their state; none when empty
  std::optional<std::uint64_t> hostile{};  ///< with this seed every device becomes hostile

  /// Throws ArrayError.
  static HostSpec from_environment();
};

/// The first path whose group is in the best access state; of such groups the preferred one.
std::size_t best_path(const std::vector<PathSpec> &paths,
                      const std::vector<TargetPortGroup> &groups);

/// The multipath driver's nodes: a block and a raw one for each unit that has a name for them.
std::vector<Node> multipath_nodes(const std::vector<UnitSpec> &units);

/// Puts the units into `host`, with the control node, multipath nodes and platform files that a
/// host with the multipath driver has. Throws StateError when a unit's state cannot be kept.
void install(Host &host, std::vector<UnitSpec> units, const std::string &machine = "x86_64",
             const HostSpec &spec = {});

/// Two controllers with two ports each, four logical units, four paths to each.
std::vector<UnitSpec> demo_array();

/// What is wrong with a description, and where.
class ArrayError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Installs the array that a JSON file describes (sim/README.md). Throws ArrayError whose text
/// names the file and the place of the mistake.
void install_file(Host &host, const std::string &file, const HostSpec &spec = {});

}  // namespace sim
