/**
 * @file
 * Associations: links between values of different properties, each seen from both sides.
 *
 * Forms, returned arrays and threads are those of ddlproperty.h. An array's entries stand in
 * descending order of the linked property's name, then of the linked value. Look-ups that may
 * refresh what they answer from, get_asso() and get_asso_val(), are in ddlproperty_dynamic.h.
 */
#ifndef KZDDL_DDLPROPERTY_ASSO_H
#define KZDDL_DDLPROPERTY_ASSO_H

#include "kzddl/api.h"

#include <stdint.h>

KZDDL_BEGIN_DECLS

/**
 * Links value `x` of property `p` with value `y` of property `q`. An existing link stays as it
 * is. Stops the process when memory is short.
 *
 * @param p, x  one property and its value
 * @param q, y  the other
 * @return 0; -1 when the database, a property or a value does not exist, or when `p` and `q`
 *         name one property
 */
KZDDL_API int32_t set_asso_ts(const char *p, const char *x, const char *q, const char *y);
/** As set_asso_ts(). */
KZDDL_API int32_t set_asso(const char *p, const char *x, const char *q, const char *y);

/**
 * Removes the link between value `x` of property `p` and value `y` of property `q`.
 *
 * @param p, x  one property and its value
 * @param q, y  the other
 * @return 0, also without a database, without a link, or without the value whose property is
 *         named higher (by `strcmp` of `p` and `q`); -1 when either property or the other value
 *         does not exist, or when `p` and `q` name one property
 */
KZDDL_API int32_t delete_asso_ts(const char *p, const char *x, const char *q, const char *y);
/** As delete_asso_ts(). */
KZDDL_API int32_t delete_asso(const char *p, const char *x, const char *q, const char *y);

/** What select_asso_val() compares: the linked value is ... than the value given. */
enum {
  KZDDL_ASSO_EQUAL = 0,
  KZDDL_ASSO_DIFFERENT = 1,
  KZDDL_ASSO_LESS = 2,
  KZDDL_ASSO_GREATER = 3,
  KZDDL_ASSO_LESS_OR_EQUAL = 4,
  KZDDL_ASSO_GREATER_OR_EQUAL = 5
};

/**
 * Looks up the values of property `q` that value `x` of property `p` is linked with and that
 * compare with `x` as `op` says, by payload bytes. Nothing is refreshed.
 *
 * @param p, x    the property and its value that the links start from
 * @param op      a comparison named above; any other selects nothing
 * @param q       the property whose values are looked for
 * @param values  receives an array of typed strings; untouched unless the result is positive
 * @return the number of values; -1 when the database, a property or `x` does not exist, or when
 *         memory is short
 */
KZDDL_API int32_t select_asso_val_ts(const char *p, const char *x, uint32_t op, const char *q,
                                     const char ***values);
/** As select_asso_val_ts(), with an array of texts. */
KZDDL_API int32_t select_asso_val(const char *p, const char *x, uint32_t op, const char *q,
                                  const char ***texts);

KZDDL_END_DECLS

#endif
