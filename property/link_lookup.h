// Look-ups along links, under the locks they need.
#pragma once

#include <cstdint>

#include "property/ddlproperty_links.h"
#include "property/ddlproperty_store.h"
#include "property/typed_string.h"

namespace kzddl {

/// Copies the first value of `wanted`, in descending order, that is linked with value `x` of
/// `property`; false without one.
bool copy_first_linked(const char *property, const TypedString &x, const char *wanted,
                       TypedString *copy);

/// The look-up behind every answer about one property's values: `chosen` takes (value given,
/// linked value).
template <class Chosen>
std::int32_t look_up(const char *property, const char *x, const char *wanted, Chosen chosen,
                     const char ***out) {
  const PropertyReader reader(property, wanted);
  const vnode *value = reader.find(TypedString(x));
  if (value == nullptr || reader.other().address == nullptr) return -1;
  return linked_values(
      reader.other(), *value, [&](const asso &link) { return chosen(*value, *link.assov); }, out);
}

/// All values of `wanted` that are linked with value `x` of `property`: their number; -1 when
/// the database, a property or `x` does not exist, or memory is short.
std::int32_t ddl_get_asso_val_ts(const char *property, const char *x, const char *wanted,
                                 const char ***out);

/// All links of value `x` of `property`, names and values in step: their number, or -1 as above.
std::int32_t ddl_get_asso_ts(const char *property, const char *x, const char ***names,
                             const char ***values);

}  // namespace kzddl
