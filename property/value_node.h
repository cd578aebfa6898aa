// A value as the database keeps it, and the links in it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "nv/ddlts.h"
#include "property/typed_list.h"

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

static_assert(sizeof(asso) == 2 * sizeof(void *) && offsetof(vnode, value) == 0);
static_assert(sizeof(void *) != 4 || offsetof(vnode, alist) == 8);

/// The order of values: by payload, as unsigned bytes; the type takes no part. 0 when a side, or
/// its text, is null.
inline std::int32_t cmp_val(const vnode *a, const vnode *b) {
  if (a == nullptr || b == nullptr || a->value == nullptr || b->value == nullptr) return 0;
  const unsigned a_length = payload_length(a->value);
  const unsigned b_length = payload_length(b->value);
  const int order = std::memcmp(text_of(a->value), text_of(b->value), std::min(a_length, b_length));
  if (order != 0) return order < 0 ? -1 : 1;
  if (a_length == b_length) return 0;
  return a_length < b_length ? -1 : 1;
}

}  // namespace kzddl
