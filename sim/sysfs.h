// What the kernel shows of a node in /sys: the disk or sg device, and the SCSI device behind it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "sim/file_tree.h"
#include "sim/node.h"

namespace sim {

/// Adds what a node of a name in /dev has there; a node elsewhere has nothing. `state` says what
/// state the SCSI device is in; of nodes with the same address the first one's does.
void add_to_sysfs(FileTree &tree, const std::shared_ptr<const Node> &node,
                  std::function<std::string()> state);

void remove_from_sysfs(FileTree &tree, const Node &node);

/// "8:16".
std::string number_text(dev_t number);

}  // namespace sim
