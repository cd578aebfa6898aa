// What third-party copy a device supports: the operating parameters of its copy manager.
#pragma once

#include "kzddl/kzecopy_oper.h"
#include "tools/device.h"
#include "tools/view.h"

namespace tool {

/// Asked of the device. Throws Error on failure.
rcr_oper_parm read_copy_limits(Device &device);

/// The fields of a record.
void show_copy_limits(ViewBuilder &view, const rcr_oper_parm &limits);

/// A captured reply of RECEIVE COPY RESULTS. Throws Error when it is too short.
View captured_copy_limits_view(ByteSpan reply);

}  // namespace tool
