/**
 * @file
 * READ CAPACITY: how many logical blocks a disk has, and of what size; with printers.
 *
 * The data are handed over in SCSI byte order (most significant byte first).
 */
#ifndef KZDDL_KZREADCAP_H
#define KZDDL_KZREADCAP_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/** A capacity in host byte order, as the caller prepares it for decode_read_capacity_data(). */
typedef struct capacity_record {
  uint64_t blocks;     /**< number of logical blocks */
  uint32_t block_size; /**< bytes of a logical block */
} capacity_record;

/**
 * Sends READ CAPACITY(10) by the route that `scsi_version` names. The version mutex is not taken.
 *
 * @param path    the device; its node is opened read-only by the direct route
 * @param reladr  bit 0 is the RelAdr bit
 * @param lba     logical block address
 * @param pmi     bit 0 is the PMI bit
 * @param len     receives 8; on failure 0 (on IA-64: 24), if the node could be opened
 * @param buf     receives a buffer that the caller releases with `free`: last logical block
 *                address (4 bytes), block length (4 bytes); untouched on failure
 * @return 0; `errno` of a failed open or request; the negated status, or -19 without a
 *         control node; 12 when memory is short
 */
KZDDL_API int do_read_capacity(odh *path, int reladr, unsigned lba, int pmi, int *len,
                               unsigned char **buf);

/** READ CAPACITY(10) through the control node; as do_read_capacity(). */
KZDDL_API int do_read_capacity_35(odh *path, int reladr, unsigned lba, int pmi, int *len,
                                  unsigned char **buf);

/** READ CAPACITY(10) on the node itself; as do_read_capacity(). */
KZDDL_API int do_read_capacity_32(odh *path, int reladr, unsigned lba, int pmi, int *len,
                                  unsigned char **buf);

/**
 * READ CAPACITY(16) through the control node; as do_read_capacity(), with 32 bytes of data:
 * last logical block address (8 bytes), block length (4 bytes), and what SBC defines behind.
 *
 * The legacy request of IA-64 knows READ CAPACITY(10) alone: there `*len` is 8 and the data are
 * those of do_read_capacity().
 */
KZDDL_API int do_read_capacity_16(odh *path, int reladr, unsigned lba, int pmi, int *len,
                                  unsigned char **buf);

/**
 * READ CAPACITY(10) by the legacy request; as do_read_capacity(). A nonzero `indirect` sends
 * through the control node, zero opens the node.
 */
KZDDL_API int do_read_capacity_old(odh *path, int reladr, unsigned lba, int pmi, int *len,
                                   unsigned char **buf, int indirect);

/** Prints a capacity on standard output: blocks, block size, and the whole in units of 2^30. */
KZDDL_API void decode_read_capacity_data(const capacity_record *cap);

/** Prints `len` bytes on standard output, a line for each. */
KZDDL_API void dump_read_capacity_data(const unsigned char *data, int len);

KZDDL_END_DECLS

#endif
