/**
 * @file
 * SET TARGET PORT GROUPS: changes the asymmetric access state of target port groups.
 */
#ifndef KZDDL_KZSTPG_H
#define KZDDL_KZSTPG_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/**
 * Sends a parameter list once, by the route that `scsi_version` names, under the version mutex
 * if `scsi_version_lock_needed` is set.
 *
 * @param path    the device; its node is opened read-only by the direct route
 * @param list    4 reserved bytes, then for each group 4 bytes: the requested state in the low
 *                4 bits of the first, the group's number in the last two, most significant byte
 *                first. Only read.
 * @param length  length of the list in bytes
 * @return 0; nonzero on failure. Indirect: the call's result (19 without a control node, -1), or
 *         the OR of host, masked and driver status, positive. Direct: `errno` of a failed open or
 *         request, or the negated status. On IA-64 as direct, 12 when memory is short, and -19
 *         without a control node.
 */
KZDDL_API int do_stpg(odh *path, unsigned char *list, uint32_t length);

KZDDL_END_DECLS

#endif
