/**
 * @file
 * Look-ups along associations, which fetch a disk's dynamic attributes from its array support
 * library first; and the interface of such a library.
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
 *
 * Forms, returned arrays and threads are those of ddlproperty.h. A fetch runs with no lock of
 * the database held. It leaves a value that the library reports again as it is, and removes one
 * that is no longer reported: what look-ups handed out of it is then no longer valid.
 */
#ifndef KZDDL_DDLPROPERTY_DYNAMIC_H
#define KZDDL_DDLPROPERTY_DYNAMIC_H

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

/**
 * Looks up the values of property `q` that value `v` of property `p` is linked with.
 *
 * When `p` is exactly "DISK" and the disk has a dynamic attribute whose name begins `q`, that
 * attribute is fetched first: by the attribute's own entry point, else `q` by that of the
 * disk's library. A fetch that fails is logged and leaves the answer to what is stored.
 *
 * @param p, v    the property and its value that the links start from
 * @param q       the property whose values are looked for
 * @param values  receives an array of typed strings. Without any it is left alone, or set to
 *                null after a fetch.
 * @return the number of values; 0 for none; -1 when the database, a property or `v` does not
 *         exist, or when memory is short
 */
KZDDL_API int32_t get_asso_val_ts(const char *p, const char *v, const char *q,
                                  const char ***values);
/** As get_asso_val_ts(), with an array of texts. */
KZDDL_API int32_t get_asso_val(const char *p, const char *v, const char *q, const char ***texts);

/**
 * Looks up everything that value `v` of property `p` is linked with. When `p` is exactly "DISK",
 * all dynamic attributes of the disk are fetched first, as get_asso_val_ts() does.
 *
 * @param p, v    the property and its value that the links start from
 * @param names   receives an array of property names
 * @param values  receives an array of typed strings in step with `names`. Without any link both
 *                are left alone, or set to null after a fetch.
 * @return the number of links; 0 for none; -1 when the database, the property or `v` does not
 *         exist, or when memory is short
 */
KZDDL_API int32_t get_asso_ts(const char *p, const char *v, const char ***names,
                              const char ***values);
/** As get_asso_ts(), with texts for the values. */
KZDDL_API int32_t get_asso(const char *p, const char *v, const char ***names, const char ***texts);

KZDDL_END_DECLS

#endif
