/**
 * @file
 * The cache of disk geometries, and the geometry as a dynamic attribute.
 */
#ifndef KZDDL_KZMISC_GEOMETRY_H
#define KZDDL_KZMISC_GEOMETRY_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/ddlproperty_dynamic.h"
#include "kzddl/kzgeom.h"

KZDDL_BEGIN_DECLS

/** Property whose value, linked with a "DISK" value, names the disk's multipath node. */
#define KZDDL_PROP_JOX_DEVICE "JOX_DEVICE"
/** Name of the geometry as a dynamic attribute. */
#define KZDDL_PROP_GEOMETRY "DISK_GEOMETRY"
/** Type byte of the geometry's typed string. */
#define KZDDL_GEOMETRY_TYPE 0x80
/** ddl_get_geometry() flag: ask the disk again, whatever is cached. */
#define KZDDL_GEOMETRY_REFRESH 0x1

/** An entry of the geometry cache, which the geometry mutex guards. */
typedef struct disk_geom_entry {
  uint64_t blkdev;              /**< device number of the disk's multipath block node: the key */
  disk_geom geom;               /**< what the disk answered */
  struct disk_geom_entry *next; /**< null in the last one */
} disk_geom_entry;

/** First entry of the cache, or null. Read it under ddlproperty_geometry_lock(). */
KZDDL_API extern disk_geom_entry *disk_geom_headp;

/**
 * Hands out the geometry of a disk: from the cache, or from its multipath node.
 *
 * @param disk   the "DISK" value of the property database; it is linked with a "JOX_DEVICE"
 *               value, the name of nodes in /dev/kz/jox and /dev/kz/rjox
 * @param geom   receives the cached record, which belongs to the cache; it stays valid until a
 *               refresh of the same disk
 * @param flags  KZDDL_GEOMETRY_REFRESH or 0
 * @return 0; 1 on any failure, with nothing cached
 */
KZDDL_API int32_t ddl_get_geometry(const char *disk, disk_geom **geom, uint8_t flags);

/**
 * Entry point of the dynamic attribute "DISK_GEOMETRY": a typed string of type 0x80 whose
 * payload is the `disk_geom` record.
 *
 * @param disk  the disk; its `path` is used
 * @param attr  must be "DISK_GEOMETRY"
 * @param list  receives a list of one pair, which the caller releases with nv_free(); untouched
 *              on failure
 * @return 0; 1 for another attribute or on any failure
 */
KZDDL_API int32_t get_dynamic_geometry(dip disk, const char *attr, char ***list);

KZDDL_END_DECLS

#endif
