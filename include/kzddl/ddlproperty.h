/**
 * @file
 * Property store: the process-wide database of named properties and their values.
 *
 * A property has a name, compared without regard to letter case (it keeps the spelling it was
 * first stored with), and a set of distinct values. A value is a typed string (ddlts.h) of at
 * most KZDDL_TS_MAX_PAYLOAD bytes; two values are equal when their payloads are.
 *
 * Forms: a function whose name ends in `_ts` hands out typed strings, its namesake without the
 * suffix hands out their texts (3 bytes further on, and a C string when the payload is text).
 * Both take either form in their arguments: plain text stands for a typed string of type 0. Any
 * function given plain text of more than KZDDL_TS_MAX_PAYLOAD bytes as a value returns -1 and
 * changes nothing.
 *
 * Returned arrays: made with `malloc`, a null entry after the last, in descending order; the
 * caller releases the array with `free`. The entries point into the database: they are neither
 * changed nor freed by the caller, and valid only while the value or property exists.
 *
 * Thread safety: any thread may call any function at any time, save init_property_list(), which
 * runs alone, and print_list(), which runs while nobody changes the list of properties.
 *
 * A broken invariant of the database stops the process with an assertion.
 */
#ifndef KZDDL_DDLPROPERTY_H
#define KZDDL_DDLPROPERTY_H

#include "kzddl/api.h"

#include <stdint.h>

KZDDL_BEGIN_DECLS

/**
 * Choices that a host program makes when a property or value is stored. The functions run with
 * locks of the database held: they call nothing of it. A number of levels is 1 to
 * KZDDL_SL_MAX_LEVELS (ddlskiplist.h says how to choose it); out of range, nothing is stored.
 */
typedef struct ddl_prop_table {
  /** Classifies a new property; the result is passed to the other two. */
  int32_t (*convert)(const char *name);
  /** Levels of a property's list of values. */
  int32_t (*val_level)(int32_t conv);
  /** Levels of a value's list of associations. */
  int32_t (*asso_level)(int32_t conv);
} ddl_prop_table;

/** The default table: class 0 for every name, 8 levels. */
KZDDL_API extern ddl_prop_table ddl_prop_def_ops;

/** The table in force, set by init_property_list(). */
KZDDL_API extern ddl_prop_table *ddl_prop_ops;

/**
 * Creates the database, or empties it when there is one. Until this has run once, every
 * function that takes the name of a property returns -1.
 *
 * @param ops  table that the caller keeps alive; null for `ddl_prop_def_ops`
 */
KZDDL_API void init_property_list(ddl_prop_table *ops);

/** Returns 1 when the database exists, else 0. */
KZDDL_API int is_proplist_initialized(void);

/**
 * Makes a property without values.
 *
 * @param name          its name, which is copied
 * @param type          kept, and the width that follows from it: 2 for types 2 and 3, 4 for
 *                      types 4 to 7, else 0
 * @param attr1, attr2  kept
 * @return 0; -1 when the property exists or memory is short
 */
KZDDL_API int32_t create_property(const char *name, int32_t type, uint32_t attr1, uint32_t attr2);

/**
 * Adds values to a property, which is made when there is none, also for an empty array. A value
 * already there stays as it is; one for which memory is short is left out.
 *
 * @param name    name of the property
 * @param values  null-terminated array
 * @return the number of entries of the array; -1 without a database, for plain text that is
 *         too long, or when the property cannot be made
 */
KZDDL_API int32_t set_property_ts(const char *name, const char *const *values);

/**
 * Adds values to a property one by one, as set_property_ts() does, until one fails. An empty
 * array does nothing.
 *
 * @param name    name of the property
 * @param values  null-terminated array
 * @return the number of entries of the array; -1 when one failed
 */
KZDDL_API int32_t set_property(const char *name, const char *const *values);

/**
 * Looks up the values of a property.
 *
 * @param name    name of the property
 * @param values  receives an array of typed strings; untouched unless the result is positive
 * @return the number of values; 0 for an unknown property or when memory is short; -1 without
 *         a database
 */
KZDDL_API int32_t get_property_ts(const char *name, const char ***values);

/** Looks up the texts of a property's values; otherwise as get_property_ts(). */
KZDDL_API int32_t get_property(const char *name, const char ***texts);

/**
 * Removes values with all their associations, and the property when none is left.
 *
 * @param name    name of the property
 * @param values  null-terminated array; values that do not exist are passed over
 * @return 0; -1 for an unknown property or plain text that is too long
 */
KZDDL_API int32_t delete_property_ts(const char *name, const char *const *values);

/**
 * Removes values one by one, as delete_property_ts() does, until one fails. An empty array does
 * nothing.
 *
 * @param name    name of the property
 * @param values  null-terminated array
 * @return 0; -1 when one failed: also when the property went with an earlier one
 */
KZDDL_API int32_t delete_property(const char *name, const char *const *values);

/** Removes a property with its values and their associations. 0, or -1 for an unknown one. */
KZDDL_API int32_t destroy_property(const char *name);

/** Logs every property, value and association, and what is left out where memory is short. */
KZDDL_API void print_property_list(void);

/** Logs the structure of the list of properties. Takes no lock. */
KZDDL_API void print_list(void);

KZDDL_END_DECLS

#endif
