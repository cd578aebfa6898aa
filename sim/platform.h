// The real platform behind the interposed functions.
#pragma once

namespace sim::platform {

/// The C library's own open, past the interposed one.
int open(const char *name, int flags);

}  // namespace sim::platform
