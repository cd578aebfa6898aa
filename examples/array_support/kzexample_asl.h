/**
 * @file
 * A small array support library: what a host program finds in it with dlsym.
 */
#ifndef KZEXAMPLE_ASL_H
#define KZEXAMPLE_ASL_H

#include <kzddl/ddlproperty_dynamic.h>

/**
 * Answers for three attributes of a disk:
 *
 * - "ARRAY_TYPE": one text.
 * - "POWER_STATE": two texts, one for each power supply.
 * - "INQUIRY_ID": one binary value, the identification fields (bytes 8 to 35) of the disk's
 *   standard inquiry data.
 *
 * Register its address under KZDDL_PROP_ENTRY.
 */
__attribute__((visibility("default"))) int32_t get_dynamic_attr(dip disk, const char *attr,
                                                                char ***list);

/**
 * The handler record, which has calls made one at a time. Register its address under
 * KZDDL_PROP_HANDLER.
 */
__attribute__((visibility("default"))) void *get_handler(void);

#endif
