/**
 * @file
 * Fits a geometry to the 16-bit fields of a disk label.
 */
#ifndef KZDDL_SOLGEOM_H
#define KZDDL_SOLGEOM_H

#include "kzddl/api.h"

#include <stdint.h>

KZDDL_BEGIN_DECLS

/**
 * Brings the cylinder count within 16 bits by trading it against the two other counts, so that
 * the three still cover no more than the capacity.
 *
 * @param cyl       cylinders
 * @param nsect     sectors for each track, at most 65535
 * @param nhead     heads, at most 255
 * @param capacity  sectors of the disk
 * @return 0; 22 (EINVAL) when the counts cannot be fitted, changed or not
 */
KZDDL_API int32_t vol_sol_lbl_adj_geom(uint32_t *cyl, uint32_t *nsect, uint32_t *nhead,
                                       uint64_t capacity);

KZDDL_END_DECLS

#endif
