/**
 * @file
 * REPORT TARGET PORT GROUPS: the raw reply, which the decoders of ddlalua.h walk.
 */
#ifndef KZDDL_KZRTPG_H
#define KZDDL_KZRTPG_H

#include "kzddl/api.h"
#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/**
 * Reads the target port groups by the route that `scsi_version` names, under the version mutex
 * if `scsi_version_lock_needed` is set. A UNIT ATTENTION, a busy device, a host or a driver error
 * is tried again at once, up to 64 attempts in all.
 *
 * @param path   the device; its node is opened read-only by the direct route
 * @param reply  receives a zero-filled buffer of 255 bytes with the reply, cut there, which the
 *               caller releases with `free`; untouched on failure
 * @return 0; `errno` when the node cannot be opened; 12 when memory is short; otherwise the last
 *         attempt's call result OR its status: 19 without a control node, -1 for a failed call,
 *         positive for a status. On IA-64 `errno` of the request, or negative: the negated status,
 *         -19 without a control node.
 */
KZDDL_API int do_rtpg(odh *path, unsigned char **reply);

/** do_rtpg() by its long name. */
KZDDL_API int do_report_target_port_group(odh *path, unsigned char **reply);

KZDDL_END_DECLS

#endif
