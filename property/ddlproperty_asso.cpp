// Associations: links between two values, and the look-ups along them.
#include "kzddl/ddlproperty_asso.h"

#include <cstring>
#include <utility>

#include "base/check.h"
#include "property/links.h"

using namespace kzddl;

namespace {

/// Calls change(side, other) with both sides of a link locked for writing, the side whose name
/// as given is lower first. A value that does not exist is null. Without a database the result
/// is `no_store`; without a property, or within one property, -1.
template <class Change>
std::int32_t with_sides(const char *p, const char *x, const char *q, const char *y,
                        std::int32_t no_store, Change change) {
  if (std::strcmp(p, q) > 0) {
    std::swap(p, q);
    std::swap(x, y);
  }
  const TypedString side_value(x);
  const TypedString other_value(y);
  if (!side_value || !other_value) return -1;

  RwGuard generic(generic_lock(), RwGuard::Mode::read);
  if (!plist) return no_store;
  pnode *side = find_property(p);
  pnode *other = find_property(q);
  if (side == nullptr || other == nullptr || side == other) return -1;
  const WritePairGuard locks(side->rwlock(), other->rwlock());
  generic.release();
  return change(asso{side, find_value(*side, side_value)},
                asso{other, find_value(*other, other_value)});
}

/// Puts a record that leads to `to` into the list of `from`, as `insertion` says; false when
/// there is no memory for the record.
bool add_record(const asso &to, const asso &from, const char *insertion) {
  auto *record = static_cast<asso *>(std::malloc(sizeof(asso)));
  if (record == nullptr) return false;
  *record = to;
  check(from.assov->alist.insert(record) == record, insertion);
  ++from.assov->nasso;
  return true;
}

/// Makes both halves of a link that does not exist yet; false when memory is short.
bool make_link(const asso &side, const asso &other) {
  return add_record(side, other, "sl_insert(rasso.assov->alist, aptr)") &&
         add_record(other, side, "sl_insert(asso.assov->alist, aptr)");
}

/// Does `op` select a linked value where `c` is cmp_val(value given, linked value)?
bool selects(std::uint32_t op, std::int32_t c) {
  switch (op) {
    case KZDDL_ASSO_EQUAL:
      return c == 0;
    case KZDDL_ASSO_DIFFERENT:
      return c != 0;
    case KZDDL_ASSO_LESS:
      return c == 1;
    case KZDDL_ASSO_GREATER:
      return c == -1;
    case KZDDL_ASSO_LESS_OR_EQUAL:
      return c == 0 || c == 1;
    case KZDDL_ASSO_GREATER_OR_EQUAL:
      return c == -1 || c == 0;
    default:
      return false;
  }
}

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

}  // namespace

namespace kzddl {

std::int32_t all_links(const vnode &value, const char ***names_out, const char ***values_out) {
  ResultArray names(value.nasso);
  ResultArray values(value.nasso);
  std::int32_t num_elements = 0;
  value.alist.for_each([&](const asso &link) {
    names.add(link.assop->name);
    values.add(link.assov->value);
    ++num_elements;
  });
  check(num_elements == value.nasso, "num_elements == vnode->nasso");
  if (num_elements == 0) return 0;
  if (!names || !values) return -1;
  *names_out = names.release();
  *values_out = values.release();
  return num_elements;
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

std::int32_t set_asso_ts(const char *p, const char *x, const char *q, const char *y) {
  bool out_of_memory = false;
  const auto change = [&out_of_memory](const asso &side, const asso &other) {
    if (side.assov == nullptr || other.assov == nullptr) return -1;
    out_of_memory = side.assov->alist.find(other) == nullptr && !make_link(side, other);
    return 0;
  };
  const std::int32_t result = with_sides(p, x, q, y, -1, change);
  check(!out_of_memory, "0");
  return result;
}

std::int32_t set_asso(const char *p, const char *x, const char *q, const char *y) {
  return set_asso_ts(p, x, q, y);
}

std::int32_t delete_asso_ts(const char *p, const char *x, const char *q, const char *y) {
  return with_sides(p, x, q, y, 0, [](const asso &side, const asso &other) {
    if (side.assov == nullptr) return -1;
    if (other.assov != nullptr && side.assov->alist.find(other) != nullptr)
      remove_link(side, other);
    return 0;
  });
}

std::int32_t delete_asso(const char *p, const char *x, const char *q, const char *y) {
  return delete_asso_ts(p, x, q, y);
}

std::int32_t select_asso_val_ts(const char *p, const char *x, std::uint32_t op, const char *q,
                                const char ***values) {
  const auto chosen = [op](const vnode &given, const vnode &linked) {
    return selects(op, cmp_val(&given, &linked));
  };
  return look_up(p, x, q, chosen, values);
}

std::int32_t select_asso_val(const char *p, const char *x, std::uint32_t op, const char *q,
                             const char ***texts) {
  return as_texts(select_asso_val_ts(p, x, op, q, texts), texts);
}
