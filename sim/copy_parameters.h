// The limits of a disk's copy manager, as Linux's own target states them, in both their forms.
#pragma once

#include "sim/scsi.h"

namespace sim {

/// The OPERATING PARAMETERS data of RECEIVE COPY RESULTS.
Bytes copy_operating_parameters();

/// The mode page with the extended copy parameters, whole.
Bytes copy_mode_page();

}  // namespace sim
