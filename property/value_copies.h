// Values that outlive the locks under which they were found.
#pragma once

#include <algorithm>
#include <cstring>

#include "property/ddlproperty_links.h"

namespace kzddl {

/// The same value, type included?
inline bool is_same(const TypedString &a, const TypedString &b) {
  return a && b && ts_len(a.get()) == ts_len(b.get()) &&
         std::memcmp(a.get(), b.get(), ts_len(a.get())) == 0;
}

/// Typed strings copied out of the database, back to back in one block, in descending order.
class ValueCopies {
 public:
  /// Copies the values of `property` linked with `value`; false when memory is short.
  template <class Property>
  bool copy_linked(const Property &property, const vnode &value) {
    std::size_t size = 0;
    for_each_link_to(property, value,
                     [&size](const asso &link) { size += room(link.assov->value); });
    if (size == 0) return true;
    block_.reset(static_cast<char *>(std::malloc(size)));
    if (block_ == nullptr) return false;
    end_ = block_.get() + size;
    char *at = end_;
    for_each_link_to(property, value, [&at](const asso &link) {
      at -= room(link.assov->value);
      ts_copy(at, link.assov->value);
    });
    return true;
  }

  /// Null after the last.
  const char *first() const { return block_.get(); }
  const char *next(const char *copy) const {
    copy += room(copy);
    return copy != end_ ? copy : nullptr;
  }

  bool contain(const TypedString &value) const {
    const char *copy = first();
    while (copy != nullptr && !is_same(TypedString(copy), value))
      copy = next(copy);
    return copy != nullptr;
  }

 private:
  static std::size_t room(const char *typed) { return ts_len(typed) + 1; }

  Owned<char[]> block_;
  char *end_ = nullptr;
};

}  // namespace kzddl
