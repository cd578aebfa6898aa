// The diagnostic log: one message, one open and close of the log file.
#include "kzddl/kzmisc_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "base/cancellation.h"

void ddlmsg(uint32_t /*facility*/, uint32_t /*level*/, const char *format, ...) {
  const kzddl::CancellationPutOff uncancelled;
  const int saved = errno;
  const char *name = std::getenv("KZ_DEBUG_FILE");
  std::FILE *file = name != nullptr ? std::fopen(name, "a") : nullptr;
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(file != nullptr ? file : stderr, format, arguments);
  va_end(arguments);
  if (file != nullptr) std::fclose(file);
  errno = saved;
}
