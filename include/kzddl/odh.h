/**
 * @file
 * The device path record: one device node and its numbers.
 *
 * Every command takes one. Array support libraries receive it and pass it back, so its
 * layout is a binary interface: 276 bytes in native byte order, in both word sizes.
 */
#ifndef KZDDL_ODH_H
#define KZDDL_ODH_H

#include "kzddl/api.h"

#include <stdint.h>

/** A device path. The caller fills it; no command changes it. */
typedef struct odh {
  char devname[256]; /**< NUL-terminated node name, opened by the direct route */
  uint64_t dev;      /**< the node's device number (`st_rdev`), used by the indirect route */
  uint64_t blkdev;   /**< the matching block node's number; `dev` when only one node is known */
  uint32_t zero;     /**< always 0 */
} __attribute__((packed, aligned(4))) odh;

#endif
