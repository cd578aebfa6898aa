/**
 * @file
 * Reads and writes of 512-byte blocks, and the check whether another host holds a reservation.
 *
 * Blocks travel by the legacy request on every machine, at most 8 at a time, so that concurrent
 * calls on one device interleave chunk by chunk.
 *
 * The kernel tells the legacy request nothing of host errors. When a chunk times out or its path
 * dies, do_diskio() goes on and returns 0 all the same: what was read is zeros there, what was
 * written is not on the disk. Nothing asked afterwards shows it, for the path may have come back.
 * Data that must not be lost go by do_scsi(), with READ and WRITE of at most 64 KiB, whose result
 * tells host errors (but not on IA-64) and whose `uscsi_resid` must be 0.
 */
#ifndef KZDDL_KZDISKIO_H
#define KZDDL_KZDISKIO_H

#include "kzddl/api.h"
#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/** `op`: read blocks into the buffer. */
#define KZDDL_DISKIO_READ 0
/** `op`: write blocks from the buffer. */
#define KZDDL_DISKIO_WRITE 1
/** `op`: read without returning the data, to see whether a reservation is in the way. */
#define KZDDL_DISKIO_PROBE 2

/** Result: another initiator holds a reservation. */
#define KZDDL_DISKIO_CONFLICT (-2)

/**
 * Reads or writes a run of blocks by the route that `scsi_version` names (read without its
 * mutex). A failed chunk ends the call; earlier ones stay read or written.
 *
 * @param path     the device
 * @param lba      address of the first block
 * @param nblocks  number of blocks; the low 16 bits count
 * @param buf      512 bytes for each block: the data to write, or room for what is read
 * @param op       one of the operations above; any other reads without returning data
 * @return 0, also when a chunk was lost on its way; -1 on failure; KZDDL_DISKIO_CONFLICT with
 * KZDDL_DISKIO_PROBE by the indirect route
 */
KZDDL_API int do_diskio(odh *path, unsigned lba, unsigned nblocks, unsigned char *buf, int op);

/** do_diskio() through the control node. */
KZDDL_API int do_diskio_35(odh *path, unsigned lba, unsigned nblocks, unsigned char *buf, int op);

/** do_diskio() on the node `node`, opened read-only for writes as well. */
KZDDL_API int do_diskio_32(const char *node, unsigned lba, unsigned nblocks, unsigned char *buf,
                           int op);

/**
 * Asks with MODE SENSE whether another initiator holds a reservation. On IA-64 that is a legacy
 * request: it tells no conflict, and on a path that died 0 or -1.
 *
 * @param path  the device
 * @return KZDDL_DISKIO_CONFLICT when one does; -1 when MODE SENSE failed otherwise (some targets
 *         refuse page 0 and so give -1 unreserved); else 0
 */
KZDDL_API int do_diskio_chk_rsvn(odh *path);

KZDDL_END_DECLS

#endif
