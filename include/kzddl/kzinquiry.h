/**
 * @file
 * INQUIRY: standard inquiry data and vital product data (VPD) pages, and their printers.
 */
#ifndef KZDDL_KZINQUIRY_H
#define KZDDL_KZINQUIRY_H

#include "kzddl/api.h"

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/**
 * Reads standard inquiry data or a VPD page by the route that `scsi_version` names, under
 * the version mutex if `scsi_version_lock_needed` is set.
 *
 * For standard data the hooks of `ddl_cache_ops` are asked first, and what they hold is
 * returned without a command; what a device answers is offered to them.
 *
 * @param path    the device
 * @param evpd    0 for standard data, 1 for a VPD page
 * @param page    VPD page code
 * @param oflags  open flags for the device
 * @param len     receives the data's length in bytes: additional length + 5 for standard
 *                data, low byte of the page length + 4 for a VPD page, at most 255; after a
 *                failure it may have been written and means nothing
 * @param buf     receives a buffer of 255 bytes (cached data: of `*len` bytes) that the
 *                caller releases with `free`; untouched on failure
 * @return 0; `errno` of a failed open or request; the negated status, or -19 without a
 *         control node; 12 when memory is short. On IA-64 also -1 when the device
 *         announces no additional data.
 */
KZDDL_API int do_inquiry(odh *path, int evpd, int page, int oflags, int *len, unsigned char **buf);

/** INQUIRY on the node itself, opened with `oflags`; arguments and results as do_inquiry(). */
KZDDL_API int do_inquiry_32(odh *path, int evpd, int page, int oflags, int *len,
                            unsigned char **buf);

/**
 * INQUIRY by the legacy request, used on IA-64; arguments and results as do_inquiry(). A nonzero
 * `indirect` sends through the control node, zero opens the node.
 */
KZDDL_API int do_inquiry_old(odh *path, int evpd, int page, int oflags, int *len,
                             unsigned char **buf, int indirect);

/** Prints `len` bytes on standard output, a line for each, also as a raw character. */
KZDDL_API void dump_inquiry_data(const unsigned char *data, int len);

/**
 * Prints the fields of standard inquiry data on standard output.
 *
 * @param data  36 bytes, or 48 when `len` is greater than 36
 * @param len   length of the data; above 36 the serial number is printed too
 */
KZDDL_API void decode_inquiry_data(const unsigned char *data, int len);

KZDDL_END_DECLS

#endif
