/**
 * @file
 * The interface of an array support library, from which a disk's dynamic attributes are fetched.
 *
 * A host program registers the libraries in the property database. "Related" is linked by
 * set_asso():
 *
 *     property                       its values               related to
 *     KZDDL_PROP_DISK                device paths of disks    their dynamic attributes, their
 *                                                             library, their attributes' values
 *     KZDDL_PROP_DYNAMIC             names of dynamic         the disks that have them; perhaps an
 *                                    attributes               entry point and a handler record
 *                                                             for this attribute alone
 *     KZDDL_PROP_LIBNAME             names of libraries       the disks they handle; their entry
 *                                                             point and handler record
 *     KZDDL_PROP_ENTRY               address of an entry      the attribute or library it serves
 *                                    point
 *     KZDDL_PROP_HANDLER             address of a handler     the attribute or library it serves
 *                                    record
 *     the attribute's name           the fetched values       the disk they belong to
 *
 * An address is the first sizeof(void *) bytes of the payload, in native byte order; store it as
 * a typed string, since plain text ends at its first zero byte. Bytes that a shorter payload leaves
 * out are zero.
 */
#ifndef KZDDL_ARRAY_SUPPORT_H
#define KZDDL_ARRAY_SUPPORT_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/odh.h"

KZDDL_BEGIN_DECLS

#define KZDDL_PROP_DISK "DISK"                    /**< device paths of disks */
#define KZDDL_PROP_DYNAMIC "DYNAMIC"              /**< names of dynamic attributes */
#define KZDDL_PROP_LIBNAME "LIBNAME"              /**< names of array support libraries */
#define KZDDL_PROP_ENTRY "GET_DYNAMIC_ATTR_ENTRY" /**< addresses of entry points */
#define KZDDL_PROP_HANDLER "GET_DLL_HANDLER"      /**< addresses of handler records */

/** Bytes of a device path in a `dip` record, with its NUL. A longer one cannot be fetched for. */
#define KZDDL_DIP_PATH_SIZE 132

/** The disk of a fetch, as an array support library receives it. */
typedef struct dip {
  char path[KZDDL_DIP_PATH_SIZE]; /**< the "DISK" value, NUL-terminated */
  struct odh *odh;                /**< its device path record, for the SCSI commands */
} dip;

/**
 * Entry point of an array support library: answers for one attribute of a disk.
 *
 * It is called on the thread that looks something up, with no lock held but the handler's
 * mutex, and with its cancellation put off. Both records live until it returns. It may use the
 * database, but a look-up from KZDDL_PROP_DISK that asks for what it answers itself would call it
 * again, without end; with the mutex held, so would anything that its library answers wait for
 * itself.
 *
 * @param disk  the disk
 * @param attr  name of the attribute
 * @param list  receives a list (ddl_name_value_api.h) whose first pair is the attribute's; the
 *              caller releases it with nv_free()
 * @return 0; any other value when there is no answer, and the list is then not looked at
 */
typedef int32_t (*get_dynamic_attr_fn)(dip disk, const char *attr, char ***list);

/** What is read of an array support library's handler record: byte offsets in it. */
enum {
  KZDDL_HANDLER_FLAGS = 36, /**< one byte of flags */
  KZDDL_HANDLER_MUTEX = 68  /**< a POSIX mutex */
};

/** Handler flag: calls of the entry point are made one at a time, under the mutex. */
#define KZDDL_HANDLER_SERIALISE 0x10

KZDDL_END_DECLS

#endif
