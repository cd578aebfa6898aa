// The store: properties, their values, and what goes with them when they go.
#include "property/ddlproperty_store.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/check.h"
#include "base/memory.h"
#include "kzddl/ddlproperty_sys.h"
#include "property/ddlproperty_links.h"

namespace kzddl {

TypedList<pnode> plist;
const pnode *dynamic_property;

namespace {

struct ReleaseValue {
  void operator()(vnode *value) const {
    value->alist.destroy();
    std::free(value);
  }
};
using OwnedValue = std::unique_ptr<vnode, ReleaseValue>;

OwnedValue create_vnode(const pnode &property, const TypedString &value, const NodeRules &rules) {
  const std::size_t size = KZDDL_TS_HEADER_SIZE + value.length();
  OwnedValue made(zeroed_record<vnode>(size + 1).release());
  if (made == nullptr) return nullptr;
  made->value =
      static_cast<char *>(std::memcpy(static_cast<void *>(made.get() + 1), value.get(), size));
  made->alist = TypedList<asso>::create<cmp_asso>(rules.link_levels(property.conv));
  if (!made->alist) return nullptr;
  return made;
}

}  // namespace

void ReleaseProperty::operator()(pnode *property) const {
  property->vlist.destroy();
  property->index.destroy();
  ddlproperty_rwlock_free(&property->lock);
  std::free(property);
}

OwnedProperty create_pnode(const char *name, const NodeRules &rules) {
  const std::size_t name_size = std::strlen(name) + 1;
  Owned<pnode> property = zeroed_record<pnode>(name_size);
  if (property == nullptr) return nullptr;
  property->name =
      static_cast<char *>(std::memcpy(static_cast<void *>(property.get() + 1), name, name_size));
  property->conv = rules.conversion(name);
  property->vlist = TypedList<vnode>::create<cmp_val>(rules.value_levels(property->conv));
  if (!property->vlist) return nullptr;
  if (ddlproperty_rwlock_init(&property->lock) != 0) {
    property->vlist.destroy();
    return nullptr;
  }
  return OwnedProperty(property.release());
}

pnode *insert_property(OwnedProperty property) {
  if (property == nullptr) return nullptr;
  if (plist.insert(property.get()) != property.get()) return nullptr;
  if (compare_ignoring_case(property->name, KZDDL_PROP_DYNAMIC) == 0) {
    dynamic_property = property.get();
  }
  return property.release();
}

void store_value(pnode &property, const TypedString &value, const NodeRules &rules) {
  if (!value || find_value(property, value) != nullptr) return;
  OwnedValue made = create_vnode(property, value, rules);
  if (made == nullptr || property.vlist.insert(made.get()) == nullptr) return;
  ++property.nval;
  property.index.add(*made.release(), property.vlist, property.nval);
}

void drain(pnode &property) { const RwGuard lock(property.rwlock(), RwGuard::Mode::write); }

void remove_value(pnode &property, vnode &value) {
  check(value.alist.count() == value.nasso, "num_elements == vnode->nasso");
  while (const asso *link = value.alist.any()) {
    const asso other = *link;
    const RwGuard lock(other.assop->rwlock(), RwGuard::Mode::write);
    remove_link({&property, &value}, other);
  }
  check(value.nasso == 0, "!vnode->nasso");
  check(property.vlist.remove(value), "!sl_delete(pnode->vlist, vnode)");
  property.index.remove(value);
  --property.nval;
  ReleaseValue()(&value);
}

void remove_property(pnode &property) {
  check(property.nval == 0, "!pnode->nval");
  check(plist.remove(property), "!sl_delete(plist, pnode)");
  if (dynamic_property == &property) dynamic_property = nullptr;
  ReleaseProperty()(&property);
}

void delete_unlinked_value(const char *name, const TypedString &value) {
  const RwGuard generic(generic_lock(), RwGuard::Mode::write);
  pnode *property = find_property(name);
  if (property == nullptr) return;
  drain(*property);
  vnode *found = find_value(*property, value);
  if (found == nullptr || found->nasso != 0) return;
  remove_value(*property, *found);
  if (property->nval == 0) remove_property(*property);
}

}  // namespace kzddl
