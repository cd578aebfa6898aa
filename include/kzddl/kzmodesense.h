/**
 * @file
 * MODE SENSE(6): mode parameter header, block descriptors and mode pages; with printers.
 *
 * Results of every command here: 0; `errno` of a failed open or request; the negated status,
 * or -19 without a control node; 12 when memory is short.
 */
#ifndef KZDDL_KZMODESENSE_H
#define KZDDL_KZMODESENSE_H

#include "kzddl/api.h"
#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/**
 * Reads mode parameters by the route that `scsi_version` names (read without its mutex).
 *
 * @param path  the device; its node is opened read-only by the direct route
 * @param dbd   1 asks for no block descriptors
 * @param pc    page control: 0 current, 1 changeable, 2 default, 3 saved values
 * @param page  page code
 * @param len   receives the answer's length, byte 0 + 1, at most 255; untouched on failure
 * @param buf   receives a buffer of 255 bytes that the caller releases with `free`; untouched
 *              on failure
 */
KZDDL_API int do_mode_sense_raw(odh *path, int dbd, int pc, int page, int *len,
                                unsigned char **buf);

/**
 * Reads mode pages, without the header and the block descriptors; as do_mode_sense_raw().
 *
 * @param path, dbd, pc  as do_mode_sense_raw()
 * @param page           page code
 * @param page_len       receives the length of the pages in bytes; untouched on failure
 * @param page_buf       receives a buffer that the caller releases with `free`; untouched on
 *                       failure
 * @param rsvn_conflict  receives 1 when the device answered RESERVATION CONFLICT, else 0 (on
 *                       IA-64 always 0)
 * @return also 12 when the answer is shorter than its header and descriptors
 */
KZDDL_API int do_mode_sense(odh *path, int dbd, int pc, int page, int *page_len,
                            unsigned char **page_buf, int *rsvn_conflict);

/**
 * MODE SENSE by the legacy request; as do_mode_sense_raw(), but `*len` is set to 255 before the
 * command. A nonzero `indirect` sends through the control node, zero opens the node.
 */
KZDDL_API int generic_mode_sense_old(odh *path, int dbd, int pc, int page, int *len,
                                     unsigned char **buf, int indirect);

/**
 * Reads mode parameters of the device of a given number, through the control node.
 *
 * @param dev_lo   low 32-bit word of the device number
 * @param dev_hi   high 32-bit word of the device number
 * @param dbd, pc  as do_mode_sense_raw()
 * @param page     page code
 * @param subpage  subpage code
 * @param len      receives the answer's length; 255 when the command fails
 * @param buf      receives a buffer of 255 bytes that the caller releases with `free`; untouched
 *                 on failure
 */
KZDDL_API int do_mode_sense_raw1(unsigned dev_lo, unsigned dev_hi, int dbd, int pc, int page,
                                 int subpage, int *len, unsigned char **buf);

/** do_mode_sense_raw1() by the legacy request. */
KZDDL_API int do_mode_sense_raw1_old(unsigned dev_lo, unsigned dev_hi, int dbd, int pc, int page,
                                     int subpage, int *len, unsigned char **buf);

/**
 * Copies the mode pages out of a MODE SENSE answer.
 *
 * @param answer    the answer
 * @param len       its length in bytes
 * @param page_buf  receives a buffer that the caller releases with `free`; untouched on failure
 * @param page_len  receives its length, which may be 0; untouched on failure
 * @return 0; 12 when memory or the answer is short
 */
KZDDL_API int get_mode_page_info(const unsigned char *answer, int len, unsigned char **page_buf,
                                 int *page_len);

/** Prints `len` bytes on standard output, a line for each. */
KZDDL_API void dump_mode_sense_data(const unsigned char *data, int len);

/**
 * Prints header, block descriptors and mode pages of a MODE SENSE answer on standard output.
 * Nothing past `len` bytes is read, whatever the answer says of itself.
 *
 * @param data  the answer
 * @param len   its length in bytes
 * @return the offset behind what was printed; without pages that of the first page
 */
KZDDL_API int decode_mode_sense_data(const unsigned char *data, int len);

KZDDL_END_DECLS

#endif
