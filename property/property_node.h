// A property as the database keeps it, and the order of properties and links.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/ascii.h"
#include "property/guards.h"
#include "property/typed_list.h"
#include "property/typed_string.h"
#include "property/value_index.h"
#include "property/value_node.h"

namespace kzddl {

/// A property; its name lies right behind it.
struct pnode {
  const char *name;
  std::int32_t nval;  ///< values in `vlist`
  std::int32_t type;
  std::int32_t width;
  std::uint32_t attr1;
  std::uint32_t attr2;
  TypedList<vnode> vlist;
  pthread_rwlock_t lock;
  std::int32_t conv;
  ReaderSlots readers;
  ValueIndex index;

  RwLock rwlock() { return {&lock, &readers, name}; }
};

static_assert(offsetof(pnode, name) == 0);
static_assert(sizeof(void *) != 4 || (offsetof(pnode, vlist) == 24 && offsetof(pnode, lock) == 28 &&
                                      offsetof(pnode, conv) == 60));

// The orders of the lists. Each returns 0 when a side, or the field it compares, is null.

/// By name, whatever its letter case.
inline std::int32_t cmp_prop(const pnode *a, const pnode *b) {
  if (a == nullptr || b == nullptr || a->name == nullptr || b->name == nullptr) return 0;
  return compare_ignoring_case(a->name, b->name);
}

/// By the other side's property, then by its value; a key without a value matches the run of
/// records that lead to the property.
inline std::int32_t cmp_asso(const asso *a, const asso *b) {
  if (a == nullptr || b == nullptr) return 0;
  const std::int32_t order = cmp_prop(a->assop, b->assop);
  return order != 0 ? order : cmp_val(a->assov, b->assov);
}

/// Null also for text that is too long to be a value.
inline vnode *find_value(const pnode &property, const TypedString &value) {
  if (!value) return nullptr;
  if (property.index) return property.index.find(value.get());
  vnode key;
  key.value = value.get();
  return property.vlist.find(key);
}

/// A property under the name that was asked for. It may be gone by now, unless the value in hand
/// has a link with it: the address is to be compared, not followed.
struct NamedProperty {
  const char *name;
  const pnode *address;  ///< null when there was none
};

}  // namespace kzddl
