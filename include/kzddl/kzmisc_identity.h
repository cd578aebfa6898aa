/**
 * @file
 * Identifiers of logical units and array cabinets, and device numbers.
 */
#ifndef KZDDL_KZMISC_IDENTITY_H
#define KZDDL_KZMISC_IDENTITY_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

/** Size of a logical unit's identifier with its NUL. */
#define KZDDL_LUN_ID_SIZE 65
/** Size of a cabinet's identifier with its NUL. */
#define KZDDL_CABINET_ID_SIZE 33

/** Identifier type of a fallback name, or of a page that offers no identifier. */
#define KZDDL_NO_DESIGNATOR 0xFF

/**
 * Names a logical unit by the best designator of its Device Identification page, or by a
 * fallback name where the device offers none.
 *
 * @param path      the device
 * @param page      0 to ask first whether the device has page 0x83, or 0x83
 * @param id        KZDDL_LUN_ID_SIZE bytes; receives text, or upper-case hexadecimal digits
 * @param type      receives byte 1 of the chosen designator (PIV, association, type), or
 *                  KZDDL_NO_DESIGNATOR with the fallback name
 * @param fallback  name to use; cut to 64 characters
 * @return 0, also with the fallback name; with page 0 the result of do_inquiry() when the
 *         list of pages cannot be read; -1, with nothing written, for any other page
 */
KZDDL_API int32_t get_lun_id(odh *path, int page, char *id, unsigned char *type,
                             const char *fallback);

/**
 * Chooses the best designator of a Device Identification page: NAA before EUI-64 before
 * T10 vendor ID before vendor specific.
 *
 * @param page  the page as the device sent it. Read to its end: byte 3 + 4 bytes, at most 255.
 * @param id    KZDDL_LUN_ID_SIZE bytes
 * @param type  receives byte 1 of the chosen designator, else KZDDL_NO_DESIGNATOR
 * @return 0; -1 when there is no designator, or it is empty, runs past the page's end, or
 *         does not fit as text or digits
 */
KZDDL_API int32_t get_lun_id_from_83buf(const unsigned char *page, char *id, unsigned char *type);

/** Copies `fallback` (cut to 64 characters) to `id`, `*type` to KZDDL_NO_DESIGNATOR; returns 0. */
KZDDL_API int32_t fake_lun_id(const char *fallback, unsigned char *type, char *id);

/**
 * Names an array cabinet by its Unit Serial Number page.
 *
 * @param path    a device of the cabinet
 * @param serial  KZDDL_CABINET_ID_SIZE bytes; receives the first 32 bytes of the number as
 *                text, or at most 16 as hexadecimal digits
 * @return 0, or -1 when the device has no such page or its number does not fit
 */
KZDDL_API int32_t get_cabinet_id(odh *path, char *serial);

/**
 * Finds the device number of a node.
 *
 * @param path  the node's name
 * @return `st_rdev`; all ones (64-bit), with a message on standard output, when the node
 *         cannot be examined
 */
KZDDL_API uint64_t find_device_number(const char *path);

KZDDL_END_DECLS

#endif
