/**
 * @file
 * Look-ups along associations, which fetch a disk's dynamic attributes from its array support
 * library (array_support.h) first.
 *
 * Forms, returned arrays and threads are those of ddlproperty.h. A fetch runs with no lock of
 * the database held. It leaves a value that the library reports again as it is, and removes one
 * that is no longer reported: what look-ups handed out of it is then no longer valid.
 */
#ifndef KZDDL_DDLPROPERTY_DYNAMIC_H
#define KZDDL_DDLPROPERTY_DYNAMIC_H

#include "kzddl/api.h"

#include <stdint.h>

#include "kzddl/array_support.h"

KZDDL_BEGIN_DECLS

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
