// The INQUIRY data of a simulated disk.
#pragma once

#include <span>

#include "sim/device.h"
#include "sim/disk_spec.h"

namespace sim {

/// The data that an INQUIRY through `port` asks for, whole.
Bytes inquiry_data(const DiskSpec &spec, std::span<const std::uint8_t> cdb, const Port &port);

}  // namespace sim
