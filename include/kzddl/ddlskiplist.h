/**
 * @file
 * Skip list: an ordered set of the caller's elements, reached through a comparison function.
 *
 * The list keeps element pointers. It never copies, owns or frees an element.
 *
 * Complexity: search, insertion and deletion take logarithmic time while the number of
 * elements stays near 2 to the power of the number of levels; beyond that, time grows with
 * elements / 2^levels. Choose about log2 of the number of elements expected: 5 levels serve
 * some tens, 8 some hundreds, 20 a million. The property database makes its lists with 5 and
 * 8 levels; a host that keeps thousands of values in a property, or links thousands of values
 * with one, installs an ops table that answers 20.
 *
 * Thread safety: none inside. The caller excludes everyone while sl_insert(), sl_delete() or
 * sl_destroy() runs; all other functions may run together. A callback changes no list that is
 * being walked.
 */
#ifndef KZDDL_DDLSKIPLIST_H
#define KZDDL_DDLSKIPLIST_H

#include "kzddl/api.h"

#include <stdint.h>

KZDDL_BEGIN_DECLS

/** Most levels a list can have. */
#define KZDDL_SL_MAX_LEVELS 32

/**
 * Orders a stored element (first) against the caller's key (second).
 *
 * The key need not be an element: a comparator may take part of it as a wildcard that matches
 * anything, as long as the elements it matches stand side by side.
 *
 * @return exactly -1 when the element sorts before the key, 0 when it matches, 1 when it sorts
 *         after the key
 */
typedef int32_t (*sl_compare_fn)(const void *element, const void *key);

/**
 * Visits one element of a walk; `key`, `arg1` and `arg2` are those given to the walk.
 *
 * @return 0 to go on, anything else to stop
 */
typedef int32_t (*sl_walk_fn)(const void *key, void *element, void *arg1, void *arg2);

/** Gives the text that sl_print() shows for an element. */
typedef const char *(*sl_text_fn)(const void *element);

/** One element and its links, in one allocation with the array that `forward` points to. */
typedef struct sl_node {
  void *element;            /**< the caller's */
  struct sl_node **forward; /**< next nodes, one for each level from 0 to the node's own */
} sl_node;

/** A list, in one allocation with the array that `forward` points to. Callers only read it. */
typedef struct sl_list {
  float probability;        /**< as given at creation; levels are always drawn with one half */
  int32_t level;            /**< highest level in use, from 0 */
  int32_t max_level;        /**< highest level a node may reach */
  sl_compare_fn compare;    /**< the order of the elements */
  struct sl_node **forward; /**< first nodes, one for each level from 0 to `max_level` */
} sl_list;

/**
 * Makes an empty list.
 *
 * @param levels       number of levels, 1 to KZDDL_SL_MAX_LEVELS
 * @param probability  kept in the record
 * @param compare      the order of the elements
 * @return the list, which the caller ends with sl_destroy(); null for a number of levels out
 *         of range or when memory is short
 */
KZDDL_API sl_list *sl_create(int32_t levels, float probability, sl_compare_fn compare);

/**
 * Adds `element`, which is its own key, unless the list holds a match.
 *
 * @param list     the list
 * @param element  the element, which the list does not own
 * @return `element`; the element already stored when there is one, with nothing changed; null
 *         for a null list or when memory is short, with nothing changed
 */
KZDDL_API void *sl_insert(sl_list *list, void *element);

/** Returns an element that matches `key`; null when there is none or for a null list. */
KZDDL_API void *sl_search(const sl_list *list, const void *key);

/**
 * Removes the element that matches `key`; the element itself is left alone.
 *
 * @param list  the list
 * @param key   should match one element: of several the first is removed
 * @return 0; -1 when nothing matches or for a null list
 */
KZDDL_API int32_t sl_delete(sl_list *list, const void *key);

/**
 * Calls `fn` for every element that matches `key`, in ascending order, until it returns
 * nonzero. Looks at every element of the list.
 */
KZDDL_API void sl_walk(const sl_list *list, const void *key, sl_walk_fn fn, void *arg1, void *arg2);

/**
 * Calls `fn` for the run of elements that match `key`, in ascending order, until it returns
 * nonzero. Finds the run as a search does and stops behind it.
 *
 * @param list        the list
 * @param key         what the elements are compared with
 * @param fn          gets the key, an element and both arguments
 * @param arg1, arg2  for `fn` alone
 * @return 0 when no element matches or for a null list; the nonzero result of `fn`; else 1
 */
KZDDL_API int32_t sl_search_and_walk(const sl_list *list, const void *key, sl_walk_fn fn,
                                     void *arg1, void *arg2);

/** Frees the list and its nodes, not the elements. Returns 0, or -1 for a null list. */
KZDDL_API int32_t sl_destroy(sl_list *list);

/** Logs the elements of each level, from `max_level` down to 0, by `text_of` their text. */
KZDDL_API void sl_print(const sl_list *list, sl_text_fn text_of);

/** Logs a list whose elements point to signed 32-bit integers, as sl_print() does. */
KZDDL_API void sl_print_int(const sl_list *list);

KZDDL_END_DECLS

#endif
