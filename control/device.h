// The host's SCSI devices by number.
#pragma once

#include <cstdint>

namespace control {

/// Opens the SCSI disk, partition or sg node of device number `device` (as stat tells it) with the
/// caller's open flags. A number does not say block or character: a block device goes first.
/// Returns a descriptor, or the negated errno: ENODEV when no SCSI device has the number.
int open_device(std::uint64_t device, int flags);

}  // namespace control
