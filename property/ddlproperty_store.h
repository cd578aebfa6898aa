// The property database from inside: how its properties and values are found, read under their
// locks, made and removed.
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

#include <cstdint>
#include <memory>

#include "kzddl/array_support.h"
#include "property/guards.h"
#include "property/property_node.h"
#include "property/typed_list.h"
#include "property/typed_string.h"

namespace kzddl {

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

/// A property that was found, held for reading; the list of properties is already released.
class PropertyReader {
 public:
  explicit PropertyReader(const char *name) : property_(find_property(name)) { generic_.release(); }
  /// The property `other` is found only, not held.
  PropertyReader(const char *name, const char *other)
      : property_(find_property(name)), other_{other, find_property(other)} {
    generic_.release();
  }

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
  // Initialised in this order: the generic lock first, the property's own last.
  RwGuard generic_{generic_lock(), RwGuard::Mode::read};
  bool store_exists_{plist};
  pnode *property_;
  NamedProperty other_{};
  NamedProperty dynamic_{KZDDL_PROP_DYNAMIC, dynamic_property};
  RwGuard lock_{property_ != nullptr ? property_->rwlock() : RwLock{}, RwGuard::Mode::read};
};

/// The host's say in new nodes.
struct NodeRules {
  std::int32_t (*conversion)(const char *name);
  std::int32_t (*value_levels)(std::int32_t conversion);  ///< of a property's list of values
  std::int32_t (*link_levels)(std::int32_t conversion);   ///< of a value's list of links
};

struct ReleaseProperty {
  void operator()(pnode *property) const;
};
using OwnedProperty = std::unique_ptr<pnode, ReleaseProperty>;

/// A property that is in no list yet, or null when memory is short.
OwnedProperty create_pnode(const char *name, const NodeRules &rules);

// What follows changes the list of properties or a property's values, each guarded as above.

/// The property as it is now in the list, or null when memory is short.
pnode *insert_property(OwnedProperty property);

/// Adds a value that is not there yet; without memory it is left out.
void store_value(pnode &property, const TypedString &value, const NodeRules &rules);

/// Waits until nobody is inside a property. The generic lock is held for writing: nobody enters
/// until it is released, and what follows needs no lock of this property.
void drain(pnode &property);

/// Removes a value of a drained property, its links first. Nothing is allocated, so that
/// nothing can fail half-way.
void remove_value(pnode &property, vnode &value);

/// Removes a drained property without values.
void remove_property(pnode &property);

/// Removes a value of a property, and the property with its last value, but only while the
/// value has no links; in one step, so that no one links it in between.
void delete_unlinked_value(const char *name, const TypedString &value);

}  // namespace kzddl
