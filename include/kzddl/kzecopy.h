/**
 * @file
 * Target descriptors of EXTENDED COPY: builders and printers. No command is sent.
 *
 * A descriptor is a block of 32 bytes that the caller releases with `free`. The printers write
 * to standard output and return 0.
 */
#ifndef KZDDL_KZECOPY_H
#define KZDDL_KZECOPY_H

#include "kzddl/api.h"

#include <stdint.h>

KZDDL_BEGIN_DECLS

/** Bytes of a target descriptor. */
#define KZDDL_TARGET_DESCRIPTOR_SIZE 32

/**
 * Builds a Fibre Channel N_Port_Name descriptor (type code 0xE0).
 *
 * @param lun    logical unit identifier, 8 bytes
 * @param port   N_Port_Name, 8 bytes
 * @param parms  device type specific parameters
 * @param td     receives the descriptor, or null
 * @return 0; -1, with a message on standard output, when memory is short
 */
KZDDL_API int do_td_create_e0(const unsigned char *lun, const unsigned char *port, uint32_t parms,
                              unsigned char **td);

/**
 * Builds a Fibre Channel N_Port_ID descriptor (type code 0xE1); as do_td_create_e0(). Of the 8
 * bytes at `port` the first 7 go to bytes 21 to 27: the N_Port_ID is the first 3.
 */
KZDDL_API int do_td_create_e1(const unsigned char *lun, const unsigned char *port, uint32_t parms,
                              unsigned char **td);

/**
 * Builds an Identification Descriptor descriptor (type code 0xE4).
 *
 * @param code_set  low 4 bits
 * @param type      designator type, low 4 bits
 * @param length    length of the identifier, at most 20 bytes: a cut one would name another device
 * @param id        the identifier
 * @param parms     device type specific parameters
 * @param td        receives the descriptor, or null
 * @return 0; -1 for a longer identifier, or, with a message on standard output, when memory is
 *         short
 */
KZDDL_API int do_td_create_e4(unsigned char code_set, unsigned char type, unsigned char length,
                              const unsigned char *id, uint32_t parms, unsigned char **td);

/** Prints `size` bytes of a descriptor, a line for each, also as a raw character. */
KZDDL_API int do_td_print(const unsigned char *td, int size);

/** Prints the fields of a descriptor of type 0xE0 or 0xE4 under `name`. */
KZDDL_API int do_display_target_desc(const char *name, const unsigned char *td);

/**
 * Pads a text with blanks to `width` - 1 characters and a NUL; a longer one is cut there.
 *
 * @param text   the text
 * @param dst    `width` bytes
 * @param width  below 1, nothing is written
 * @return 0
 */
KZDDL_API int padstring(const char *text, char *dst, int width);

/** ts_tostring(). */
KZDDL_API int32_t do_ts_tostring(const char *s, char **out);
/** ts_print(). */
KZDDL_API void do_ts_print(const char *s);
/** ts_build(). */
KZDDL_API int32_t do_ts_build(uint32_t type, uint32_t len, const void *data, char **out);

KZDDL_END_DECLS

#endif
