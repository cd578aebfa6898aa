/**
 * @file
 * Text helpers for fields of SCSI data, and the printing of device information.
 *
 * Whitespace and printable characters are those of the C locale; bytes 0x80 to 0xFF are
 * neither. No function keeps state: all may be called from any thread.
 */
#ifndef KZDDL_KZMISC_TEXT_H
#define KZDDL_KZMISC_TEXT_H

#include "kzddl/api.h"

#include <stdint.h>

KZDDL_BEGIN_DECLS

/** Size of a vendor identification with its NUL. */
#define KZDDL_VID_SIZE 9
/** Size of a product identification with its NUL. */
#define KZDDL_PID_SIZE 17

/** Device information. Character fields end with a NUL where there is room. */
typedef struct devinfo {
  char vendor_id[KZDDL_VID_SIZE];  /**< vendor identification of the inquiry data */
  char product_id[KZDDL_PID_SIZE]; /**< product identification, likewise */
  char revision[5];                /**< product revision, likewise */
  char cabinet_serial[33];         /**< serial number of the cabinet */
  char port_serial[128];           /**< serial number of the port */
  char lun_serial[65];             /**< serial number of the logical unit */
  uint8_t scsi_version;            /**< ANSI version, as in get_ansi_from_inqdata() */
  char array_name[16];             /**< name of the array */
  char array_type[16];             /**< kind of array */
  int8_t ownership;                /**< the host's own; printed in decimal */
  uint8_t tpd_flags;               /**< the host's own; printed in hexadecimal */
} devinfo;

/** Writes `n` bytes of `field` to standard output as they are, then a newline. */
KZDDL_API void print_field(const char *field, int32_t n);

/** Prints a device-information record on standard output, a labelled line for each field. */
KZDDL_API void print_devinfo_fields(const devinfo *rec);

/**
 * Copies the product revision (bytes 32 to 35) out of standard INQUIRY data.
 *
 * @param inq  at least 36 bytes
 * @param dst  at least 5 bytes; NUL-terminated
 * @return `dst`
 */
KZDDL_API char *get_revno_from_inqdata(const unsigned char *inq, char *dst);

/** Stores a zero-filled buffer of KZDDL_VID_SIZE bytes in `*p`, or null (reported on stdout). */
KZDDL_API void alloc_vid_buffer(char **p);
/** Stores a zero-filled buffer of KZDDL_PID_SIZE bytes in `*p`, or null (reported on stdout). */
KZDDL_API void alloc_pid_buffer(char **p);
/** Releases a buffer of alloc_vid_buffer(); null is harmless. */
KZDDL_API void free_vid_buffer(char *p);
/** Releases a buffer of alloc_pid_buffer(); null is harmless. */
KZDDL_API void free_pid_buffer(char *p);

/**
 * Copies a space-padded field and drops its trailing whitespace.
 *
 * The trim takes effect when `src` fills the width (`size` - 1 characters); trailing blanks
 * of a shorter text stay.
 *
 * @param src   text of at least `size` - 1 characters, or NUL-terminated
 * @param dst   `size` bytes; NUL-terminated
 * @param size  at least 1
 */
KZDDL_API void strcpy_nb(const char *src, char *dst, int32_t size);

/**
 * Removes every whitespace character from `s` in place, and fills what it frees with NULs; returns
 * how many.
 */
KZDDL_API int32_t do_remove_space(char *s);

/**
 * Renders bytes as upper-case hexadecimal digits.
 *
 * @param dst   `size` bytes; untouched when the digits and a NUL do not fit
 * @param src   `len` bytes
 * @param len   bytes to render
 * @param size  size of `dst`
 * @return 0, or -1 when they do not fit
 */
KZDDL_API int32_t binhex_copy(char *dst, const unsigned char *src, int32_t len, int32_t size);

/**
 * Copies an identifier: as text when all its bytes are printable and none is "," (a NUL as
 * the last byte is allowed), else as upper-case hexadecimal digits.
 *
 * @param dst   `size` bytes
 * @param src   `len` bytes
 * @param len   bytes of the identifier
 * @param size  size of `dst`
 * @return 0, or -1 when the text (`dst` untouched) or the digits (`dst` unusable) do not fit
 */
KZDDL_API int32_t bascii_copy(char *dst, const unsigned char *src, int32_t len, int32_t size);

KZDDL_END_DECLS

#endif
