/**
 * @file
 * The indirect request to the multipath driver's control node.
 */
#ifndef KZDDL_KZMISC_SYS_H
#define KZDDL_KZMISC_SYS_H

#include "kzddl/api.h"

KZDDL_BEGIN_DECLS

/**
 * Performs an `ioctl` on a device through the multipath driver, which finds the device by
 * its number. The control node `/dev/kz/joxconfig` is opened and closed at every call.
 *
 * On a 64-bit kernel an `SG_IO` header's `dxferp` points elsewhere while the request runs,
 * so one header must not be shared by concurrent calls; it is put back whatever happens.
 *
 * @param dev_lo  low 32-bit word of the device number
 * @param dev_hi  high 32-bit word of the device number
 * @param cmd     `SG_IO` or `SCSI_IOCTL_SEND_COMMAND`
 * @param oflags  open flags that apply to the device for this request
 * @param arg     the argument of that `ioctl`
 * @return 19 (ENODEV) when the control node cannot be opened, else the result of the
 *         `ioctl` on it: 0, a positive device status, or -1 with `errno` set
 */
KZDDL_API int ddl_indirect_ioctl(unsigned dev_lo, unsigned dev_hi, unsigned cmd, unsigned oflags,
                                 void *arg);

KZDDL_END_DECLS

#endif
