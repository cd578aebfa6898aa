/**
 * @file
 * Name-value pairs and lists: how attributes cross between the library and array support
 * libraries.
 *
 * A pair is one string: a name, "=" and a value. The value is plain text whose elements are
 * separated by "," (blanks around an element are not significant), or, when its first byte is
 * KZDDL_TS_MARKER, typed strings (ddlts.h) with one "," between each two. A list is a
 * null-terminated array of pairs.
 *
 * Ownership: whatever a function here delivers is one guarded block that only nv_free()
 * releases; an array's strings lie in the block of the array. Arguments are never changed or
 * released. A function that fails delivers nothing: its result pointer stays as it was.
 *
 * Thread safety: no function keeps state. Pairs and lists never change once built, so threads
 * may share them until one releases them.
 *
 * The functions that take `...` end at a null pointer.
 */
#ifndef KZDDL_DDL_NAME_VALUE_API_H
#define KZDDL_DDL_NAME_VALUE_API_H

#include "kzddl/api.h"

#include <stdint.h>

KZDDL_BEGIN_DECLS

/** Allocates `n` bytes in a guarded block, aligned for pointers; null when memory is short. */
KZDDL_API void *nv_alloc(uint32_t n);

/** Releases a guarded block. A null pointer, or one without the guard before it, is left alone. */
KZDDL_API void nv_free(void *block);

/**
 * Makes a list of copies of pairs.
 *
 * @param list  receives the list
 * @param ...   pairs (`const char *`), then null
 * @return the number of pairs; -1 without any, for a pair without "=", or when memory is short
 */
KZDDL_API int32_t nv_create_list(char ***list, ...) __attribute__((sentinel));

/**
 * Makes a list of copies of the pairs of a list, then of further pairs.
 *
 * @param list  receives the new list
 * @param old   the list to start from, which may be empty
 * @param ...   pairs (`const char *`), then null
 * @return the number of pairs in the new list; -1 for a pair without "=" or when memory is
 *         short
 */
KZDDL_API int32_t nv_append_list(char ***list, char *const *old, ...) __attribute__((sentinel));

/**
 * Makes a pair.
 *
 * @param pair   receives the pair
 * @param name   its leading whitespace is dropped, its trailing whitespace is kept
 * @param value  plain text, or typed strings with one "," between each two
 * @return 0; -1 for an empty name or when memory is short
 */
KZDDL_API int32_t nv_set_value(char **pair, const char *name, const char *value);

/**
 * Makes a pair of separate values.
 *
 * @param pair  receives the pair
 * @param name  its leading whitespace is dropped, its trailing whitespace is kept
 * @param ...   typed strings (`const char *`), then null; without any the value is empty. No
 *              "," follows an empty plain string.
 * @return 0; -1 for an empty name or when memory is short
 */
KZDDL_API int32_t nv_set_mult_value(char **pair, const char *name, ...) __attribute__((sentinel));

/**
 * Makes a pair of an existing one and further values.
 *
 * @param pair  receives the new pair
 * @param old   the pair to start from
 * @param ...   typed strings (`const char *`), then null; each follows a ",", also after an
 *              empty value
 * @return 0; -1 when `old` has no "=" or an empty name, or when memory is short
 */
KZDDL_API int32_t nv_append_value(char **pair, const char *old, ...) __attribute__((sentinel));

/**
 * Reads the name of a pair, without the whitespace around it.
 *
 * @param pair  the pair
 * @param name  receives the name
 * @return 0; -1 when `pair` has no "=" or an empty name, or when memory is short
 */
KZDDL_API int32_t nv_get_name(const char *pair, char **name);

/**
 * Splits the value of a pair.
 *
 * @param pair    the pair
 * @param values  receives a null-terminated array: each typed string whole, with a NUL; each
 *                plain element without the whitespace around it. A plain value has at least one
 *                element, which may be empty.
 * @return the number of values; -1 when `pair` has no "=" or an empty name, or when memory is
 *         short
 */
KZDDL_API int32_t nv_get_value(const char *pair, char ***values);

/** Writes the names and values of a list to the diagnostic log, a line for each pair. */
KZDDL_API void nv_print(char *const *list);

KZDDL_END_DECLS

#endif
