/**
 * @file
 * Typed strings: attribute values that may hold any byte.
 *
 *     offset  size  content
 *     0       1     marker KZDDL_TS_MARKER
 *     1       1     type code
 *     2       1     payload length L, 0 to 255
 *     3       L     payload
 *     3 + L   1     NUL; inside a sequence of values a "," takes its place
 *
 * A string whose first byte is not the marker is plain NUL-terminated text. Every function
 * takes either form and trusts the length byte of a typed string. No function keeps state:
 * all may be called from any thread.
 */
#ifndef KZDDL_DDLTS_H
#define KZDDL_DDLTS_H

#include "kzddl/api.h"

#include <stdint.h>

KZDDL_BEGIN_DECLS

/** First byte of a typed string (ESC). */
#define KZDDL_TS_MARKER 0x1B
/** Bytes before the payload. */
#define KZDDL_TS_HEADER_SIZE 3
/** Longest payload. */
#define KZDDL_TS_MAX_PAYLOAD 255
/** Type code of text. Any other type is binary. */
#define KZDDL_TS_TEXT 0
/** Highest type code that ts_build() and ts_print() take. */
#define KZDDL_TS_MAX_TYPE 7

/** Length of `s` in bytes without its terminator: 3 + L, or that of the plain text. */
KZDDL_API uint32_t ts_len(const char *s);

/**
 * Copies a string with its terminator.
 *
 * @param dst  room for ts_len(src) + 1 bytes, which may overlap a typed `src`
 * @param src  plain text or a typed string
 */
KZDDL_API void ts_copy(char *dst, const char *src);

/**
 * Finds the separator that ends an element of a sequence of values.
 *
 * @param s  the sequence
 * @param c  the separator, such as ','
 * @return in plain text the first `c` (its terminator for 0); in a typed string the byte right
 *         after the payload when that is `c` and not 0; else null
 */
KZDDL_API char *ts_char(const char *s, int32_t c);

/**
 * Makes plain text of `s`: plain text and the payload of type 0 as they are (up to a NUL), any
 * other payload as upper-case hexadecimal digits.
 *
 * @param s    plain text or a typed string
 * @param out  receives text that the caller releases with `free`, or null
 * @return 0, or -1 when memory is short
 */
KZDDL_API int32_t ts_tostring(const char *s, char **out);

/**
 * Builds a typed string.
 *
 * @param type  0 to KZDDL_TS_MAX_TYPE; a higher one is logged
 * @param len   bytes of payload, at most KZDDL_TS_MAX_PAYLOAD
 * @param data  the payload
 * @param out   receives a typed string of `len` + 4 bytes that the caller releases with `free`,
 *              or null
 * @return 0, or -1 for a type or length out of range or when memory is short
 */
KZDDL_API int32_t ts_build(uint32_t type, uint32_t len, const void *data, char **out);

/**
 * Writes `s` to the diagnostic log, without a newline: plain text as it is, types 0 and 1 as
 * lower-case hexadecimal digits, types 2 to 7 as the first payload byte in signed decimal.
 */
KZDDL_API void ts_print(const char *s);

KZDDL_END_DECLS

#endif
