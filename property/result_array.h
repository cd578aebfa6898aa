// The arrays that look-ups hand out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "base/memory.h"
#include "nv/ddlts.h"

namespace kzddl {

/// An array of pointers that ends with a null one. It is filled from its last entry to its
/// first: walks ascend, and what is handed out descends.
template <class T>
class DescendingArray {
 public:
  /// Holds nothing for a size of 0 or when memory is short.
  explicit DescendingArray(std::int32_t size) {
    if (size <= 0) return;
    const auto count = static_cast<std::size_t>(size);
    entries_.reset(static_cast<T **>(std::malloc((count + 1) * sizeof(T *))));
    if (entries_ == nullptr) return;
    entries_[count] = nullptr;
    free_ = count_ = count;
  }

  explicit operator bool() const { return entries_ != nullptr; }

  void add(T *entry) {
    if (free_ != 0) entries_[--free_] = entry;
  }

  std::span<T *const> added() const { return {entries_.get() + free_, count_ - free_}; }
  T **release() { return entries_.release(); }

 private:
  Owned<T *[]> entries_;
  std::size_t free_ = 0;
  std::size_t count_ = 0;
};

/// What look-ups hand out: entries that point into the database.
using ResultArray = DescendingArray<const char>;

/// Turns the `n` typed strings of a look-up's result into their texts; returns `n`.
inline std::int32_t as_texts(std::int32_t n, const char ***values) {
  for (std::int32_t i = 0; i < n; ++i)
    (*values)[i] = text_of((*values)[i]);
  return n;
}

}  // namespace kzddl
