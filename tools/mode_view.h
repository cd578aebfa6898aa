// Mode parameters, decoded for people and for programs. Replies cut short are shown as far as
// they go, and say so.
#pragma once

#include "tools/mode_sense.h"
#include "tools/text.h"
#include "tools/view.h"

namespace tool {

/// How long a header is: that of the 6-byte commands, or of the 10-byte ones.
enum class ModeForm { six, ten };

/// The form whose header announces just as many bytes as the reply has; else that of 6 bytes.
ModeForm mode_form_of(ByteSpan reply);

/// Header, block descriptors and pages. Of changeable values it says which can be changed.
View mode_view(const std::string &title, ByteSpan reply, ModeForm form,
               ModeValues values = ModeValues::current);

}  // namespace tool
