/**
 * @file
 * The diagnostic log.
 */
#ifndef KZDDL_KZMISC_LOG_H
#define KZDDL_KZMISC_LOG_H

#include "kzddl/api.h"

#include <stdint.h>

KZDDL_BEGIN_DECLS

/**
 * Writes one diagnostic message.
 *
 * The message goes, exactly as formatted, to the end of the file that the environment
 * variable KZ_DEBUG_FILE names, or to standard error where that is unset or the file
 * cannot be opened. The variable is read and the file opened and closed at every call.
 * Never fails towards its caller; `errno` is left as it was.
 *
 * @param facility  accepted and not used; callers pass 0x70000
 * @param level     accepted and not used; callers pass 0, 1 or 9
 * @param format    `printf` format that carries its own newline
 */
KZDDL_API void ddlmsg(uint32_t facility, uint32_t level, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

KZDDL_END_DECLS

#endif
