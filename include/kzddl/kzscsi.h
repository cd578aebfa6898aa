/**
 * @file
 * Generic pass-through: sends any SCSI command that the caller describes.
 */
#ifndef KZDDL_KZSCSI_H
#define KZDDL_KZSCSI_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/** `uscsi_flags`: data moves from the device to the host. */
#define USCSI_READ 0x08

/** A SCSI request. All pointers are the caller's. */
typedef struct uscsi_cmd {
  int32_t uscsi_flags;          /**< in: `USCSI_READ` or 0 */
  int16_t uscsi_status;         /**< out: the device's SCSI status byte */
  int16_t uscsi_timeout;        /**< not examined; a request times out after 20,000 ms */
  unsigned char *uscsi_cdb;     /**< in: the command descriptor block */
  unsigned char *uscsi_bufaddr; /**< in, out: the data */
  uint32_t uscsi_buflen;        /**< in: data length in bytes */
  int32_t uscsi_resid;          /**< out: bytes not transferred */
  uint8_t uscsi_cdblen;         /**< in: CDB length in bytes */
  uint8_t uscsi_rqlen;          /**< in: size of the sense buffer in bytes */
  uint8_t uscsi_rqstatus;       /**< not written */
  uint8_t uscsi_rqresid;        /**< out: sense bytes written (a count, not a remainder) */
  unsigned char *uscsi_rqbuf;   /**< in: sense buffer of `uscsi_rqlen` bytes */
} uscsi_cmd;

/**
 * Sends the command that `req` describes.
 *
 * Without `USCSI_READ` the data, if there are any, go to the device. The out fields are
 * written whenever the request was handed over, also when it failed; not on IA-64
 * machines, whose legacy requests leave them as they were, and not when the node could
 * not be opened.
 *
 * @param path  the device; its node is opened read-only under version "32" and on IA-64
 * @param req   the request
 * @return 0 on success; the OR of host, masked and driver status (positive) when the
 *         command did not complete cleanly; 19 when the control node, `errno` when the
 *         device node could not be opened; -1 with `errno` set when the request failed.
 *         On IA-64: `errno`, or the negated status, or 12 when memory is short; 0 also when the
 *         command was lost on its way, as with every family there.
 */
KZDDL_API int do_scsi(odh *path, uscsi_cmd *req);

KZDDL_END_DECLS

#endif
