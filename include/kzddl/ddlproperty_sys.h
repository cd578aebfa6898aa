/**
 * @file
 * Lock wrappers of the process-wide state, and the block device path of a disk.
 *
 * Thread safety: every function may be called from any thread. Lock order: an array support
 * library's mutex, with no other lock held; the generic lock; property locks, two of them in
 * `strcmp` order of their names; last the version or the geometry mutex, never both.
 *
 * A thread that holds one of them calls nothing that takes it: with the generic lock held for
 * writing, any function of the database ends the process.
 *
 * Every wrapper returns the result of the POSIX call it makes: 0, or a positive error
 * number. A negative result is logged and ends the process with exit status 4.
 */
#ifndef KZDDL_DDLPROPERTY_SYS_H
#define KZDDL_DDLPROPERTY_SYS_H

#include "kzddl/api.h"

#include <pthread.h>

KZDDL_BEGIN_DECLS

/** Locks `lock` for reading. */
KZDDL_API int ddlproperty_rd_lock(pthread_rwlock_t *lock);
/** Locks `lock` for writing. */
KZDDL_API int ddlproperty_wr_lock(pthread_rwlock_t *lock);
/** Releases `lock`. */
KZDDL_API int ddlproperty_rw_unlock(pthread_rwlock_t *lock);
/** Initialises `lock` with default attributes. */
KZDDL_API int ddlproperty_rwlock_init(pthread_rwlock_t *lock);
/** Destroys `lock`. */
KZDDL_API int ddlproperty_rwlock_free(pthread_rwlock_t *lock);

/** Locks the list of properties for reading. */
KZDDL_API int ddlproperty_generic_rdlock(void);
/** Locks the list of properties for writing. */
KZDDL_API int ddlproperty_generic_wrlock(void);
/** Releases the list of properties. */
KZDDL_API int ddlproperty_generic_unlock(void);

/** Locks `mutex`. */
KZDDL_API int ddlproperty_mutex_lock(pthread_mutex_t *mutex);
/** Releases `mutex`. */
KZDDL_API int ddlproperty_mutex_unlock(pthread_mutex_t *mutex);
/** Makes `mutex` a normal mutex; returns the result of destroying its attribute object. */
KZDDL_API int ddlproperty_mutex_init(pthread_mutex_t *mutex);
/** Destroys `mutex`. */
KZDDL_API int ddlproperty_mutex_free(pthread_mutex_t *mutex);

/** Locks the interface version `scsi_version`. */
KZDDL_API int ddlproperty_scsi_version_lock(void);
/** Releases the interface version. */
KZDDL_API int ddlproperty_scsi_version_unlock(void);
/** Locks the geometry cache. */
KZDDL_API int ddlproperty_geometry_lock(void);
/** Releases the geometry cache. */
KZDDL_API int ddlproperty_geometry_unlock(void);
/** Locks the mutex that an array support library keeps in its handler record. */
KZDDL_API int ddlproperty_asl_lock(pthread_mutex_t *mutex);
/** Releases the mutex of an array support library. */
KZDDL_API int ddlproperty_asl_unlock(pthread_mutex_t *mutex);

/**
 * Initialises the generic lock, then the version mutex, then the geometry mutex.
 *
 * They are usable before that too, in their static unlocked state; no thread may hold one
 * while this runs.
 *
 * @return the result of the last initialisation
 */
KZDDL_API int ddlproperty_lock_init(void);

/** Bytes of a block device path with its NUL. */
#define KZDDL_BLOCKPATH_SIZE 4096

/**
 * Gives the path of the block device that belongs to a disk's device path: the same path.
 *
 * @param path  device path
 * @param out   KZDDL_BLOCKPATH_SIZE bytes, all written: the path, then zeros. A path of that
 *              length or more is cut and has no NUL.
 * @return 0
 */
KZDDL_API int ddl_get_blockpath(const char *path, char *out);

KZDDL_END_DECLS

#endif
