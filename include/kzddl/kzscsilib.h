/**
 * @file
 * Interface version, platform probes and the hooks that cache INQUIRY data.
 */
#ifndef KZDDL_KZSCSILIB_H
#define KZDDL_KZSCSILIB_H

#include "kzddl/api.h"

#include <stdint.h>
#include <sys/types.h>

KZDDL_BEGIN_DECLS

/**
 * Interface generation in force: exactly "32" sends commands on the opened device node,
 * anything else through the multipath driver's control node. "35" at load.
 */
KZDDL_API extern const char *scsi_version;

/** Nonzero makes the locking dispatchers hold the version mutex for the whole command. */
KZDDL_API extern int32_t scsi_version_lock_needed;

/**
 * Hooks through which a host program caches standard INQUIRY data (kind 0) per thread.
 * They are called on the thread that sends the command.
 */
typedef struct ddl_cache_table {
  /** Identity of the calling thread. */
  int32_t (*get_thread_id)(void);
  /** Offers `length` bytes at `data` to the cache, which copies what it keeps. Result ignored. */
  int32_t (*add_cache)(int32_t thread, int32_t kind, int32_t length, void *data);
  /** Returns 0 and sets `*length` and `*data` (which stay the cache's) when it has an entry. */
  int32_t (*find_cache)(int32_t thread, int32_t kind, int32_t *length, void **data);
} ddl_cache_table;

/** The default hooks: one identity (0) for all threads, and a cache that holds nothing. */
KZDDL_API extern ddl_cache_table ddl_cache_def_ops;

/** The hooks in force; a host program may point it at a table of its own. */
KZDDL_API extern ddl_cache_table *ddl_cache_ops;

/**
 * Sets `scsi_version`, always under the version mutex.
 *
 * @param version  text that the caller keeps alive and unchanged while it is in force;
 *                 NULL restores "35"
 */
KZDDL_API void kzscsi_set_version(const char *version);

/** Sets `scsi_version_lock_needed` to 1. */
KZDDL_API void set_scsi_version_lock_needed(void);
/** Sets `scsi_version_lock_needed` to 0. */
KZDDL_API void reset_scsi_lock_needed(void);
/** Returns `scsi_version_lock_needed`. */
KZDDL_API int is_scsi_version_lock_needed(void);

/** Returns 1 on an IA-64 machine, else 0. `/proc/cpuinfo` is read once per process. */
KZDDL_API int ddl_is_arch_ia64(void);

/** Returns 1 when the kernel's machine name is a 64-bit one, else 0. Asked once per process. */
KZDDL_API int ddl_is_linux_64(void);

/**
 * Finds the block major numbers that a driver registered in `/proc/devices`.
 *
 * @param name    driver name, compared whole
 * @param majors  receives each number; the caller provides room for every match
 * @return the count of numbers, or -1 when there is none or the file cannot be read
 */
KZDDL_API int is_driver_configured(const char *name, dev_t *majors);

/** Stores the ANSI version (byte 2, low three bits) of standard INQUIRY data in `*ansi`. */
KZDDL_API void get_ansi_from_inqdata(const unsigned char *inq, unsigned char *ansi);

/** Always returns -1. */
KZDDL_API int get_metanode_ctlrs(void);

KZDDL_END_DECLS

#endif
