// The real platform behind the interposed functions.
#pragma once

#include <sys/types.h>

namespace sim::platform {

// The C library's own, past the interposed ones.
int open(const char *name, int flags, mode_t mode = 0);
int close(int fd);

}  // namespace sim::platform
