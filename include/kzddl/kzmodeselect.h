/**
 * @file
 * MODE SELECT(6): writes mode parameters.
 */
#ifndef KZDDL_KZMODESELECT_H
#define KZDDL_KZMODESELECT_H

#include "kzddl/api.h"

KZDDL_BEGIN_DECLS

/**
 * Sends a mode parameter list to the device of a given number, through the control node.
 * Times out after 60,000 ms.
 *
 * @param dev_lo  low 32-bit word of the device number
 * @param dev_hi  high 32-bit word of the device number
 * @param pf      1: the list follows the standard's page format
 * @param sp      1: the device saves the pages
 * @param len     length of the list in bytes; 0 sends no data
 * @param data    the list: header, block descriptors, pages; only read
 * @return 0; `errno` of a failed request; the negated status, or -19 without a control node;
 *         12 when memory is short (IA-64)
 */
KZDDL_API int do_mode_select_raw(unsigned dev_lo, unsigned dev_hi, int pf, int sp,
                                 unsigned char len, const unsigned char *data);

/** do_mode_select_raw() by the legacy request. */
KZDDL_API int do_mode_select_raw_old(unsigned dev_lo, unsigned dev_hi, int pf, int sp,
                                     unsigned char len, const unsigned char *data);

KZDDL_END_DECLS

#endif
