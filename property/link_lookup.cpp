#include "property/link_lookup.h"

namespace kzddl {

bool copy_first_linked(const char *property, const TypedString &x, const char *wanted,
                       TypedString *copy) {
  const PropertyReader reader(property);
  const vnode *value = reader.find(x);
  const asso *link = value != nullptr ? first_link_to(wanted, *value, every_link) : nullptr;
  if (link == nullptr) return false;
  copy->copy(link->assov->value);
  return true;
}

std::int32_t ddl_get_asso_val_ts(const char *property, const char *x, const char *wanted,
                                 const char ***out) {
  return look_up(
      property, x, wanted, [](const vnode &, const vnode &) { return true; }, out);
}

std::int32_t ddl_get_asso_ts(const char *property, const char *x, const char ***names_out,
                             const char ***values_out) {
  const PropertyReader reader(property);
  const vnode *value = reader.find(TypedString(x));
  if (value == nullptr) return -1;
  return all_links(*value, names_out, values_out);
}

}  // namespace kzddl
