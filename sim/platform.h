// The real platform behind the interposed functions.
#pragma once

#include <dlfcn.h>
#include <sys/types.h>

#include <string>

namespace sim::platform {

// The C library's own, past the interposed ones.
int open(const char *name, int flags, mode_t mode = 0);
int close(int fd);

/// A new descriptor of a file that holds `text`; -1 with errno when there is none to be had.
int file_with(const std::string &text);

/// The next definition of an interposed function.
template <class Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace sim::platform
