// One typed face over the skip list of untyped elements: the casts are here and nowhere else.
#pragma once

#include <cstdint>

#include "kzddl/ddlskiplist.h"

namespace kzddl {

/// An ordered set of elements of type T that it does not own. A trivial handle like a pointer:
/// zero-filled memory holds one without a list, in which nothing is found or inserted.
template <class T>
class TypedList {
 public:
  /// `Compare` orders an element (first) against a key; a null key matches every element.
  /// Without a list when memory is short or `levels` is out of range.
  template <std::int32_t (*Compare)(const T *, const T *)>
  static TypedList create(std::int32_t levels) {
    TypedList made;
    made.list_ = sl_create(levels, 0.5F, [](const void *element, const void *key) {
      return Compare(static_cast<const T *>(element), static_cast<const T *>(key));
    });
    return made;
  }

  /// Frees the list's own memory.
  void destroy() {
    sl_destroy(list_);
    list_ = nullptr;
  }

  explicit operator bool() const { return list_ != nullptr; }

  /// The element now held for that key, or null when memory is short.
  T *insert(T *element) { return static_cast<T *>(sl_insert(list_, element)); }

  T *find(const T &key) const { return static_cast<T *>(sl_search(list_, &key)); }

  /// Some element, null when there is none.
  T *any() const { return static_cast<T *>(sl_search(list_, nullptr)); }

  /// False when nothing matches.
  bool remove(const T &key) { return sl_delete(list_, &key) == 0; }

  /// Calls visit(T &) for the elements, ascending, until it returns true.
  template <class Visit>
  void for_each_until(Visit visit) const {
    if (list_ == nullptr) return;
    for (const sl_node *node = list_->forward[0]; node != nullptr; node = node->forward[0]) {
      if (visit(*static_cast<T *>(node->element))) return;
    }
  }

  /// Calls visit(T &) for every element, ascending.
  template <class Visit>
  void for_each(Visit visit) const {
    for_each_until([&visit](T &element) { return visit(element), false; });
  }

  /// The elements, walked for it.
  std::int32_t count() const {
    std::int32_t n = 0;
    for_each([&n](const T &) { ++n; });
    return n;
  }

  /// Calls visit(T &) for the elements that match a key with a wildcard in it, ascending.
  template <class Visit>
  void for_run(const T &key, Visit visit) const {
    sl_search_and_walk(list_, &key, step<Visit>, &visit, nullptr);
  }

  /// Logs the list's structure with `Text` of each element.
  template <const char *(*Text)(const T &)>
  void print() const {
    sl_print(list_, [](const void *element) { return Text(*static_cast<const T *>(element)); });
  }

 private:
  template <class Visit>
  static std::int32_t step(const void * /*key*/, void *element, void *visit, void * /*arg2*/) {
    (*static_cast<Visit *>(visit))(*static_cast<T *>(element));
    return 0;
  }

  sl_list *list_;
};

}  // namespace kzddl
