/**
 * @file
 * PERSISTENT RESERVE OUT and IN.
 *
 * Both travel by the legacy request on every machine. The version mutex is not taken.
 *
 * The kernel tells the legacy request nothing of host errors. When a command times out or its path
 * dies, do_pgr_out() returns PGR_OK though nothing was changed, and do_pgr_in() returns PGR_OK with
 * zeros: generation 0, no keys, no reservation. A caller that fences on the answer sends the same
 * commands by do_scsi(), whose result tells host errors (but not on IA-64). A TEST UNIT READY
 * besides does not do: the path may have come back meanwhile. After a host error a change may or
 * may not have been carried out: READ KEYS and READ RESERVATION by do_scsi() tell.
 */
#ifndef KZDDL_KZPGR_H
#define KZDDL_KZPGR_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/** Results of every function here. */
enum {
  PGR_OK = 0,
  PGR_UNSUPPORTED = 1,     /**< ILLEGAL REQUEST, INVALID COMMAND OPERATION CODE */
  PGR_CHECK_CONDITION = 2, /**< any other CHECK CONDITION */
  PGR_CONFLICT = 3,        /**< RESERVATION CONFLICT */
  PGR_NOMEM = 4,           /**< memory is short */
  PGR_ERROR = 5            /**< the node cannot be opened, the request failed, another status */
};

/** Parameters of PERSISTENT RESERVE OUT: 24 bytes. */
typedef struct pgr_out_param {
  unsigned char key[8];                /**< reservation key, most significant byte first */
  unsigned char service_action_key[8]; /**< service action reservation key, likewise */
  uint32_t scope_address;              /**< scope-specific address, in host byte order */
  unsigned char flags;                 /**< APTPL and the other bits of SPC */
  unsigned char reserved;              /**< zero */
  unsigned char extent_length[2];      /**< obsolete in SPC; sent as it is */
} pgr_out_param;

/** What PERSISTENT RESERVE IN returns: a block of `length` + 12 bytes. */
typedef struct pgr_in_data {
  uint32_t generation;   /**< PRGENERATION, in host byte order */
  uint32_t length;       /**< bytes of data: the first pass's ADDITIONAL LENGTH, at most 65523 */
  unsigned char data[4]; /**< the first of them: keys or reservation descriptors as sent */
} pgr_in_data;

/**
 * Changes persistent reservations, by the route that `scsi_version` names.
 *
 * @param path            the device; its node is opened read-only, non-blocking
 * @param service_action  low byte: REGISTER 0, RESERVE 1, RELEASE 2, CLEAR 3, PREEMPT 4, ...
 * @param scope           low byte: the scope in bits 7 to 4
 * @param type            low byte: the type in bits 3 to 0
 * @param param           the parameters; only read
 * @return one of the results above
 */
KZDDL_API uint32_t do_pgr_out(odh *path, unsigned service_action, unsigned scope, unsigned type,
                              pgr_out_param *param);
/** do_pgr_out() through the control node. */
KZDDL_API uint32_t do_pgr_out_35(odh *path, unsigned service_action, unsigned scope, unsigned type,
                                 pgr_out_param *param);
/** do_pgr_out() on the node `node`. */
KZDDL_API uint32_t do_pgr_out_32(const char *node, unsigned service_action, unsigned scope,
                                 unsigned type, pgr_out_param *param);

/**
 * Reads keys or reservations, in two passes: the first asks how much there is. Where the reply
 * has become shorter between the passes, zeros stand at its end. A kernel carries no reply of
 * more than 4096 bytes this way: with more than 510 keys the result is PGR_ERROR.
 *
 * @param path            the device; its node is opened read-only, non-blocking
 * @param service_action  low byte: READ KEYS 0, READ RESERVATION 1
 * @param result          receives a block that the caller releases with `free`; null on failure
 * @return one of the results above
 */
KZDDL_API uint32_t do_pgr_in(odh *path, unsigned service_action, pgr_in_data **result);
/** do_pgr_in() through the control node. */
KZDDL_API uint32_t do_pgr_in_35(odh *path, unsigned service_action, pgr_in_data **result);
/** do_pgr_in() on the node `node`. */
KZDDL_API uint32_t do_pgr_in_32(const char *node, unsigned service_action, pgr_in_data **result);

KZDDL_END_DECLS

#endif
