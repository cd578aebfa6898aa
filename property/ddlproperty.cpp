// Properties and their values: arguments checked, and the store asked under its locks.
#include "kzddl/ddlproperty.h"

#include <utility>

#include "base/check.h"
#include "base/log.h"
#include "kzddl/ddlproperty_sys.h"
#include "kzddl/kzmisc_log.h"
#include "property/ddlproperty_store.h"
#include "property/result_array.h"

using namespace kzddl;

namespace {

constexpr std::int32_t property_list_levels = 5;

std::int32_t ddl_convert(const char * /*name*/) { return 0; }
std::int32_t get_val_level(std::int32_t /*conv*/) { return 8; }
std::int32_t get_asso_level(std::int32_t /*conv*/) { return 8; }

}  // namespace

ddl_prop_table ddl_prop_def_ops = {ddl_convert, get_val_level, get_asso_level};
ddl_prop_table *ddl_prop_ops = &ddl_prop_def_ops;

namespace {

NodeRules node_rules() {
  return {ddl_prop_ops->convert, ddl_prop_ops->val_level, ddl_prop_ops->asso_level};
}

std::int32_t width_of(std::int32_t type) {
  if (type == 2 || type == 3) return 2;
  return type >= 4 && type <= 7 ? 4 : 0;
}

bool all_fit(const char *const *values) {
  for (; *values != nullptr; ++values) {
    if (!TypedString::fits(*values)) return false;
  }
  return true;
}

/// The `n` elements of a list, descending; none when memory is short.
template <class T>
DescendingArray<T> collect(const TypedList<T> &list, std::int32_t n) {
  DescendingArray<T> elements(n);
  list.for_each([&elements](T &element) { elements.add(&element); });
  return elements;
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
  check(value.alist.count() == value.nasso, "asson == vnode->nasso");
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
  check(property.vlist.count() == property.nval, "valn == pnode->nval");
  const DescendingArray<vnode> values =
      collect_to_print(property.vlist, property.nval, "values", property.name);
  for (const vnode *value : values.added())
    print_value(*value);
}

const char *print_prop(const pnode &property) { return property.name; }

}  // namespace

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
  OwnedProperty property = create_pnode(name, node_rules());
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
  if (property == nullptr) property = insert_property(create_pnode(name, node_rules()));
  if (property == nullptr) return -1;
  const RwGuard lock(property->rwlock(), RwGuard::Mode::write);
  generic.release();
  std::int32_t count = 0;
  for (; values[count] != nullptr; ++count)
    store_value(*property, TypedString(values[count]), node_rules());
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
  check(property->vlist.count() == property->nval, "n == pnode->nval");
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
        collect_to_print(plist, plist.count(), "properties", "the database");
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
