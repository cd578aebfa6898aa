// A disk described in JSON.
#pragma once

#include "sim/disk_spec.h"
#include "sim/json_value.h"

namespace sim {

/// What the keys of a unit say of its disk. The groups have no ports yet: the paths bring them.
DiskSpec read_disk(const Value &unit);

}  // namespace sim
