// Faults described in JSON.
#pragma once

#include <vector>

#include "sim/fault.h"
#include "sim/json_value.h"

namespace sim {

/// What the keys of a path say goes wrong on it.
std::vector<Fault> read_faults(const Value &path);

}  // namespace sim
