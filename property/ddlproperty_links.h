// The links of a value: made, removed, walked and handed out. Guarded as ddlproperty_store.h has
// it.
#pragma once

#include <cstdint>
#include <iterator>

#include "property/property_node.h"
#include "property/result_array.h"

namespace kzddl {

/// Makes both halves of a link that does not exist yet; false when memory is short.
bool make_link(const asso &side, const asso &other);

/// Removes both halves of the link between two values.
void remove_link(const asso &side, const asso &other);

/// A list of no more links than this is walked instead of searched: its nodes come in a row,
/// which the processor can run ahead on.
inline constexpr std::int32_t short_list = 16;

/// Calls visit(const asso &) for the links of a value with values of a property, ascending. Both
/// sides of each are kept alive by the lock of the value's property.
template <class Visit>
void for_each_link_to(const char *property, const vnode &value, Visit visit) {
  pnode key;
  key.name = property;
  value.alist.for_run({&key, nullptr}, visit);
}

template <class Visit>
void for_each_link_to(const NamedProperty &property, const vnode &value, Visit visit) {
  if (property.address == nullptr) return;
  if (value.nasso > short_list) return for_each_link_to(property.name, value, visit);
  bool in_run = false;
  value.alist.for_each_until([&](const asso &link) {
    const bool was_in_run = in_run;
    in_run = link.assop == property.address;
    if (in_run) visit(link);
    return was_in_run && !in_run;
  });
}

/// Accepts every link.
inline constexpr auto every_link = [](const asso &) { return true; };

/// The first link in descending order with a value of `property` that accept(const asso &) takes,
/// or null.
template <class Property, class Accept>
const asso *first_link_to(const Property &property, const vnode &value, Accept accept) {
  const asso *first = nullptr;
  for_each_link_to(property, value, [&](const asso &link) {
    if (accept(link)) first = &link;
  });
  return first;
}

/// Hands out the values of `property` linked with a value, if chosen(const asso &) accepts the
/// link: their number, or -1 when memory is short.
template <class Chosen>
std::int32_t linked_values(const NamedProperty &property, const vnode &value, Chosen chosen,
                           const char ***out) {
  // A short run, the usual one, is walked once: what is found is noted here.
  const char *noted[16];
  constexpr auto room = static_cast<std::int32_t>(std::size(noted));
  std::int32_t count = 0;
  for_each_link_to(property, value, [&](const asso &link) {
    if (!chosen(link)) return;
    if (count < room) noted[count] = link.assov->value;
    ++count;
  });
  if (count == 0) return 0;
  ResultArray values(count);
  if (!values) return -1;
  if (count <= room) {
    for (std::int32_t i = 0; i < count; ++i)
      values.add(noted[i]);
  } else {
    for_each_link_to(property, value, [&](const asso &link) {
      if (chosen(link)) values.add(link.assov->value);
    });
  }
  *out = values.release();
  return count;
}

/// Hands out all links, names and values in step: their number, or -1 when memory is short.
std::int32_t all_links(const vnode &value, const char ***names, const char ***values);

}  // namespace kzddl
