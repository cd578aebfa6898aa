// Replies of INQUIRY, decoded for people and for programs. Replies cut short are shown as far
// as they go, and say so.
#pragma once

#include "tools/text.h"
#include "tools/view.h"

namespace tool {

View standard_inquiry_view(ByteSpan reply);

/// Any VPD page: in detail where it is known here, else as a dump.
View vpd_view(ByteSpan reply);

}  // namespace tool
