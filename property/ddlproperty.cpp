// The property store: properties, their values, and what goes with them when they go.
#include "kzddl/ddlproperty.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/check.h"
#include "base/log.h"
#include "kzddl/ddlproperty_dynamic.h"
#include "kzddl/kzmisc_log.h"
#include "property/store.h"

using namespace kzddl;

namespace {

constexpr std::int32_t property_list_levels = 5;

std::int32_t ddl_convert(const char * /*name*/) { return 0; }
std::int32_t get_val_level(std::int32_t /*conv*/) { return 8; }
std::int32_t get_asso_level(std::int32_t /*conv*/) { return 8; }

}  // namespace

ddl_prop_table ddl_prop_def_ops = {ddl_convert, get_val_level, get_asso_level};
ddl_prop_table *ddl_prop_ops = &ddl_prop_def_ops;

namespace kzddl {

TypedList<pnode> plist;
const pnode *dynamic_property;

std::int32_t cmp_val(const vnode *a, const vnode *b) {
  if (a == nullptr || b == nullptr || a->value == nullptr || b->value == nullptr) return 0;
  const unsigned a_length = payload_length(a->value);
  const unsigned b_length = payload_length(b->value);
  const int order = std::memcmp(text_of(a->value), text_of(b->value), std::min(a_length, b_length));
  if (order != 0) return order < 0 ? -1 : 1;
  if (a_length == b_length) return 0;
  return a_length < b_length ? -1 : 1;
}

std::int32_t cmp_asso(const asso *a, const asso *b) {
  if (a == nullptr || b == nullptr) return 0;
  const std::int32_t order = cmp_prop(a->assop, b->assop);
  return order != 0 ? order : cmp_val(a->assov, b->assov);
}

std::int32_t as_texts(std::int32_t n, const char ***values) {
  for (std::int32_t i = 0; i < n; ++i)
    (*values)[i] = text_of((*values)[i]);
  return n;
}

void remove_link(const asso &side, const asso &other) {
  const Owned<asso> to_other(side.assov->alist.find(other));
  const Owned<asso> to_side(other.assov->alist.find(side));
  check(side.assov->alist.remove(other), "!sl_delete(asso.assov->alist, &rasso)");
  check(other.assov->alist.remove(side), "!sl_delete(rasso.assov->alist, &asso)");
  --side.assov->nasso;
  --other.assov->nasso;
}

}  // namespace kzddl

namespace {

struct ReleaseProperty {
  void operator()(pnode *property) const {
    property->vlist.destroy();
    property->index.destroy();
    ddlproperty_rwlock_free(&property->lock);
    std::free(property);
  }
};
using OwnedProperty = std::unique_ptr<pnode, ReleaseProperty>;

struct ReleaseValue {
  void operator()(vnode *value) const {
    value->alist.destroy();
    std::free(value);
  }
};
using OwnedValue = std::unique_ptr<vnode, ReleaseValue>;

OwnedProperty create_pnode(const char *name) {
  const std::size_t name_size = std::strlen(name) + 1;
  Owned<pnode> property = zeroed_record<pnode>(name_size);
  if (property == nullptr) return nullptr;
  property->name =
      static_cast<char *>(std::memcpy(static_cast<void *>(property.get() + 1), name, name_size));
  property->conv = ddl_prop_ops->convert(name);
  property->vlist = TypedList<vnode>::create<cmp_val>(ddl_prop_ops->val_level(property->conv));
  if (!property->vlist) return nullptr;
  if (ddlproperty_rwlock_init(&property->lock) != 0) {
    property->vlist.destroy();
    return nullptr;
  }
  return OwnedProperty(property.release());
}

/// The property as it is now in the list, or null when memory is short.
pnode *insert_property(OwnedProperty property) {
  if (property == nullptr) return nullptr;
  if (plist.insert(property.get()) != property.get()) return nullptr;
  if (compare_ignoring_case(property->name, KZDDL_PROP_DYNAMIC) == 0) {
    dynamic_property = property.get();
  }
  return property.release();
}

OwnedValue create_vnode(const pnode &property, const TypedString &value) {
  const std::size_t size = KZDDL_TS_HEADER_SIZE + value.length();
  OwnedValue made(zeroed_record<vnode>(size + 1).release());
  if (made == nullptr) return nullptr;
  made->value =
      static_cast<char *>(std::memcpy(static_cast<void *>(made.get() + 1), value.get(), size));
  made->alist = TypedList<asso>::create<cmp_asso>(ddl_prop_ops->asso_level(property.conv));
  if (!made->alist) return nullptr;
  return made;
}

/// Adds a value that is not there yet; without memory it is left out.
void store_value(pnode &property, const TypedString &value) {
  if (!value || find_value(property, value) != nullptr) return;
  OwnedValue made = create_vnode(property, value);
  if (made == nullptr || property.vlist.insert(made.get()) == nullptr) return;
  ++property.nval;
  property.index.add(*made.release(), property.vlist, property.nval);
}

bool all_fit(const char *const *values) {
  for (; *values != nullptr; ++values) {
    if (!TypedString::fits(*values)) return false;
  }
  return true;
}

template <class T>
std::int32_t count(const TypedList<T> &list) {
  std::int32_t n = 0;
  list.for_each([&n](const T &) { ++n; });
  return n;
}

/// The `n` elements of a list, descending; none when memory is short.
template <class T>
DescendingArray<T> collect(const TypedList<T> &list, std::int32_t n) {
  DescendingArray<T> elements(n);
  list.for_each([&elements](T &element) { elements.add(&element); });
  return elements;
}

/// Waits until nobody is inside a property. The generic lock is held for writing: nobody enters
/// until it is released, and what follows needs no lock of this property.
void drain(pnode &property) { const RwGuard lock(property.rwlock(), RwGuard::Mode::write); }

/// Removes a value of a drained property, its links first. Nothing is allocated, so that
/// nothing can fail half-way.
void remove_value(pnode &property, vnode &value) {
  check(count(value.alist) == value.nasso, "num_elements == vnode->nasso");
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

/// Removes a drained property without values.
void remove_property(pnode &property) {
  check(property.nval == 0, "!pnode->nval");
  check(plist.remove(property), "!sl_delete(plist, pnode)");
  if (dynamic_property == &property) dynamic_property = nullptr;
  ReleaseProperty()(&property);
}

std::int32_t width_of(std::int32_t type) {
  if (type == 2 || type == 3) return 2;
  return type >= 4 && type <= 7 ? 4 : 0;
}

/// The same for the printed list, which says what it leaves out when memory is short.
template <class T>
DescendingArray<T> collect_to_print(const TypedList<T> &list, std::int32_t n, const char *what,
                                    const char *whose) {
  DescendingArray<T> elements = collect(list, n);
  if (n > 0 && !elements) {
    ddlmsg(log::facility, log::failure,
           "print_property_list: Unable to obtain storage: the %d %s of %s are left out\n", n, what,
           whose);
  }
  return elements;
}

void print_value(const vnode &value) {
  ddlmsg(log::facility, log::output, "\tval = %s asso = %d \n", text_of(value.value), value.nasso);
  check(count(value.alist) == value.nasso, "asson == vnode->nasso");
  const DescendingArray<asso> links =
      collect_to_print(value.alist, value.nasso, "associations", text_of(value.value));
  for (const asso *link : links.added()) {
    ddlmsg(log::facility, log::output, "\t\tassociate = %s value = %s\n", link->assop->name,
           text_of(link->assov->value));
  }
}

void print_property(pnode &property) {
  const RwGuard lock(property.rwlock(), RwGuard::Mode::read);
  ddlmsg(log::facility, log::output, "prop = %s val = %d\n", property.name, property.nval);
  check(count(property.vlist) == property.nval, "valn == pnode->nval");
  const DescendingArray<vnode> values =
      collect_to_print(property.vlist, property.nval, "values", property.name);
  for (const vnode *value : values.added())
    print_value(*value);
}

const char *print_prop(const pnode &property) { return property.name; }

}  // namespace

namespace kzddl {

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

void init_property_list(ddl_prop_table *ops) {
  if (ddlproperty_lock_initialized == 0) {
    ddlproperty_lock_init();
    ddlproperty_lock_initialized = 1;
  }
  ddl_prop_ops = ops != nullptr ? ops : &ddl_prop_def_ops;
  while (const pnode *property = plist.any())
    destroy_property(property->name);
  plist.destroy();
  plist = TypedList<pnode>::create<cmp_prop>(property_list_levels);
}

int is_proplist_initialized() { return plist ? 1 : 0; }

std::int32_t create_property(const char *name, std::int32_t type, std::uint32_t attr1,
                             std::uint32_t attr2) {
  const CancellationPutOff uncancelled;  // the ops table is the host's
  OwnedProperty property = create_pnode(name);
  if (property == nullptr) return -1;
  property->type = type;
  property->width = width_of(type);
  property->attr1 = attr1;
  property->attr2 = attr2;
  const RwGuard generic(generic_lock(), RwGuard::Mode::write);
  return insert_property(std::move(property)) != nullptr ? 0 : -1;
}

std::int32_t set_property_ts(const char *name, const char *const *values) {
  if (!all_fit(values)) return -1;
  RwGuard generic(generic_lock(), RwGuard::Mode::write);
  if (!plist) return -1;
  pnode *property = find_property(name);
  if (property == nullptr) property = insert_property(create_pnode(name));
  if (property == nullptr) return -1;
  const RwGuard lock(property->rwlock(), RwGuard::Mode::write);
  generic.release();
  std::int32_t count = 0;
  for (; values[count] != nullptr; ++count)
    store_value(*property, TypedString(values[count]));
  return count;
}

std::int32_t set_property(const char *name, const char *const *values) {
  std::int32_t count = 0;
  for (; values[count] != nullptr; ++count) {
    const char *const one[] = {values[count], nullptr};
    if (set_property_ts(name, one) == -1) return -1;
  }
  return count;
}

std::int32_t get_property_ts(const char *name, const char ***out) {
  const PropertyReader property(name);
  if (!property.store_exists()) return -1;
  if (!property) return 0;
  ResultArray values(property->nval);
  std::int32_t num_elements = 0;
  property->vlist.for_each([&](const vnode &value) {
    values.add(value.value);
    ++num_elements;
  });
  check(property->nval == num_elements, "pnode->nval == num_elements");
  if (!values) return 0;
  *out = values.release();
  return num_elements;
}

std::int32_t get_property(const char *name, const char ***out) {
  return as_texts(get_property_ts(name, out), out);
}

std::int32_t delete_property_ts(const char *name, const char *const *values) {
  if (!all_fit(values)) return -1;
  const RwGuard generic(generic_lock(), RwGuard::Mode::write);
  pnode *property = find_property(name);
  if (property == nullptr) return -1;
  drain(*property);
  for (; *values != nullptr; ++values) {
    vnode *value = find_value(*property, TypedString(*values));
    if (value != nullptr) remove_value(*property, *value);
  }
  if (property->nval == 0) remove_property(*property);
  return 0;
}

std::int32_t delete_property(const char *name, const char *const *values) {
  for (; *values != nullptr; ++values) {
    const char *const one[] = {*values, nullptr};
    if (const std::int32_t result = delete_property_ts(name, one); result != 0) return result;
  }
  return 0;
}

std::int32_t destroy_property(const char *name) {
  const RwGuard generic(generic_lock(), RwGuard::Mode::write);
  pnode *property = find_property(name);
  if (property == nullptr) return -1;
  drain(*property);
  check(count(property->vlist) == property->nval, "n == pnode->nval");
  while (vnode *value = property->vlist.any())
    remove_value(*property, *value);
  remove_property(*property);
  return 0;
}

void print_property_list() {
  ddlmsg(log::facility, log::failure, "Property List\n");
  {
    const CancellationPutOff uncancelled;  // the log is a file
    const RwGuard generic(generic_lock(), RwGuard::Mode::read);
    const DescendingArray<pnode> properties =
        collect_to_print(plist, count(plist), "properties", "the database");
    for (pnode *property : properties.added())
      print_property(*property);
  }
  ddlmsg(log::facility, log::output, "End of Property List\n");
}

void print_list() {
  ddlmsg(log::facility, log::output, "Property List\n");
  plist.print<print_prop>();
  ddlmsg(log::facility, log::output, "End of Property List\n");
}
