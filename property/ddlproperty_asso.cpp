// Associations: links between two values, and the look-ups along them.
#include "kzddl/ddlproperty_asso.h"

#include <cstring>
#include <utility>

#include "base/check.h"
#include "property/ddlproperty_links.h"
#include "property/ddlproperty_store.h"
#include "property/link_lookup.h"

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

}  // namespace

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
