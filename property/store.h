// The property database from inside: its nodes, their order, and how they are found and read
// under their locks.
//
// Who may touch what:
// - The list of properties is guarded by the generic lock. A property's values, and all that
//   these are linked with, are guarded by the property's own lock, which is only ever taken
//   with the generic lock held. A thread that holds a property's lock never waits for the
//   generic lock.
// - A name, a value's typed string and the other side of a link never change. While a link
//   exists both its sides do: removing a value removes its links first, each under the lock of
//   the other side's property.
// - A property is removed with the generic lock held for writing, after its own lock has been
//   held for writing once since: then nobody is inside it, and nobody can enter.
// - A key that outlives the generic lock is the caller's name or a copy, never a node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/ascii.h"
#include "base/memory.h"
#include "kzddl/ddlproperty_dynamic.h"
#include "property/guards.h"
#include "property/typed_list.h"
#include "property/typed_string.h"
#include "property/value_index.h"

namespace kzddl {

struct pnode;
struct vnode;

/// One half of a link: the other side's property and value.
struct asso {
  pnode *assop;
  vnode *assov;
};

/// A value; its typed string lies right behind it.
struct vnode {
  const char *value;
  std::int32_t nasso;  ///< records in `alist`
  TypedList<asso> alist;
  vnode *next_in_bucket;  ///< the index's
  std::uint32_t hash;     ///< the index's
};

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

static_assert(sizeof(asso) == 2 * sizeof(void *) && offsetof(pnode, name) == 0 &&
              offsetof(vnode, value) == 0);
static_assert(sizeof(void *) != 4 || (offsetof(vnode, alist) == 8 && offsetof(pnode, vlist) == 24 &&
                                      offsetof(pnode, lock) == 28 && offsetof(pnode, conv) == 60));

// The orders of the lists. Each returns 0 when a side, or the field it compares, is null.

/// By name, whatever its letter case.
inline std::int32_t cmp_prop(const pnode *a, const pnode *b) {
  if (a == nullptr || b == nullptr || a->name == nullptr || b->name == nullptr) return 0;
  return compare_ignoring_case(a->name, b->name);
}

/// By payload, as unsigned bytes; the type takes no part.
std::int32_t cmp_val(const vnode *a, const vnode *b);
/// By the other side's property, then by its value; a key without a value matches the run of
/// records that lead to the property.
std::int32_t cmp_asso(const asso *a, const asso *b);

/// All properties; without a list until init_property_list() has run.
extern TypedList<pnode> plist;

/// The one named KZDDL_PROP_DYNAMIC, or null: every look-up of a disk asks for it. Guarded by
/// the generic lock.
extern const pnode *dynamic_property;

inline pnode *find_property(const char *name) {
  pnode key;
  key.name = name;
  return plist.find(key);
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

/// A property that was found, held for reading; the list of properties is already released.
class PropertyReader {
 public:
  explicit PropertyReader(const char *name)
      : PropertyReader(name, [] { return NamedProperty{}; }) {}
  /// The property `other` is found only, not held.
  PropertyReader(const char *name, const char *other)
      : PropertyReader(name, [other] {
          return NamedProperty{other, find_property(other)};
        }) {}

  bool store_exists() const { return store_exists_; }
  const NamedProperty &other() const { return other_; }
  const NamedProperty &dynamic() const { return dynamic_; }
  explicit operator bool() const { return property_ != nullptr; }
  const pnode *operator->() const { return property_; }

  /// Null also when there is no such property.
  const vnode *find(const TypedString &value) const {
    return property_ != nullptr ? find_value(*property_, value) : nullptr;
  }

 private:
  template <class FindOther>
  PropertyReader(const char *name, FindOther find_other)
      : generic_(generic_lock(), RwGuard::Mode::read),
        store_exists_(plist),
        property_(find_property(name)),
        other_(find_other()),
        dynamic_{KZDDL_PROP_DYNAMIC, dynamic_property},
        lock_(property_ != nullptr ? property_->rwlock() : RwLock{}, RwGuard::Mode::read) {
    generic_.release();
  }

  RwGuard generic_;
  bool store_exists_;
  pnode *property_;
  NamedProperty other_;
  NamedProperty dynamic_;
  RwGuard lock_;
};

/// An array of pointers that ends with a null one. It is filled from its last entry to its
/// first: walks ascend, and what is handed out descends.
template <class T>
class DescendingArray {
 public:
  /// Holds nothing for a size of 0 or when memory is short.
  explicit DescendingArray(std::int32_t size) {
    if (size <= 0) return;
    const auto count = static_cast<std::size_t>(size);
    entries_.reset(static_cast<T **>(std::malloc((count + 1) * sizeof(T *))));
    if (entries_ == nullptr) return;
    entries_[count] = nullptr;
    free_ = count_ = count;
  }

  explicit operator bool() const { return entries_ != nullptr; }

  void add(T *entry) {
    if (free_ != 0) entries_[--free_] = entry;
  }

  std::span<T *const> added() const { return {entries_.get() + free_, count_ - free_}; }
  T **release() { return entries_.release(); }

 private:
  Owned<T *[]> entries_;
  std::size_t free_ = 0;
  std::size_t count_ = 0;
};

/// What look-ups hand out: entries that point into the database.
using ResultArray = DescendingArray<const char>;

/// Turns the `n` typed strings of a look-up's result into their texts; returns `n`.
std::int32_t as_texts(std::int32_t n, const char ***values);

/// Removes both halves of the link between two values, each guarded as above.
void remove_link(const asso &side, const asso &other);

/// Removes a value of a property, and the property with its last value, but only while the
/// value has no links; in one step, so that no one links it in between.
void delete_unlinked_value(const char *name, const TypedString &value);

}  // namespace kzddl
