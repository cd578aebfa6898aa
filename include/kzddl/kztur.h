/**
 * @file
 * TEST UNIT READY: can the device accept commands?
 */
#ifndef KZDDL_KZTUR_H
#define KZDDL_KZTUR_H

#include "kzddl/api.h"

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/**
 * Sends TEST UNIT READY by the route that `scsi_version` names. The version mutex is not taken.
 *
 * @param path  the device
 * @return the result of do_tur_35() or do_tur_32()
 */
KZDDL_API int do_tur(odh *path);

/**
 * Sends TEST UNIT READY through the control node.
 *
 * @param path  the device, of which `dev` is used
 * @return 0 when ready; otherwise, with "TUR ioctl failed" and the text of `errno` on
 *         standard error, a negative value: -1 for a failed call, -19 when the control
 *         node cannot be opened, or the negated OR of host, masked and driver status. On
 *         IA-64 there is no message, and the legacy request's own result is returned: 0,
 *         a positive device status, 19, or -1.
 */
KZDDL_API int do_tur_35(odh *path);

/**
 * Sends TEST UNIT READY on the node itself, opened read-only.
 *
 * @param path  the device, of which `devname` is used
 * @return as do_tur_35(); 1, with "open failed" on standard error, when the node cannot be
 *         opened (on IA-64: -1 and no message)
 */
KZDDL_API int do_tur_32(odh *path);

KZDDL_END_DECLS

#endif
