/**
 * @file
 * The geometry of a disk, read from its mode pages and its capacity.
 */
#ifndef KZDDL_KZGEOM_H
#define KZDDL_KZGEOM_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/** `disk_geom.flags`: the cylinder count was derived from the capacity. */
#define KZDDL_GEOM_DERIVED 0x1

/** A disk's geometry: 48 bytes in native byte order, in both word sizes. */
typedef struct disk_geom {
  uint32_t sectors_per_track; /**< of mode page 3, fitted to a label */
  uint32_t cylinders;         /**< of mode page 4 or derived, fitted to a label */
  uint32_t heads;             /**< of mode page 4, fitted to a label */
  uint32_t bytes_per_sector;  /**< of mode page 3 */
  uint32_t rotation_rate;     /**< revolutions a minute */
  uint32_t flags;             /**< KZDDL_GEOM_DERIVED or 0 */
  uint64_t capacity;          /**< sectors of `bytes_per_sector` bytes */
  uint32_t reserved[4];       /**< zero */
} disk_geom;

/**
 * Reads the geometry of a device: MODE SENSE pages 3 and 4, then READ CAPACITY.
 *
 * @param path  name of a device node of at most 255 characters
 * @param geom  receives the geometry; partly filled on failure
 * @return 0; -1 when the node cannot be examined or memory is short; 22 (EINVAL) when the
 *         answers are unusable or the counts do not fit a label; otherwise the result of the
 *         SCSI command that failed
 */
KZDDL_API int32_t get_geometry_info(const char *path, disk_geom *geom);

/** get_geometry_info() on the `devname` of `path`, whose device numbers are not used. */
KZDDL_API int32_t gen_get_geometry_info(odh path, disk_geom *geom);

KZDDL_END_DECLS

#endif
