// Finds a value of a property in one step. The list that keeps a property's values in order has
// few levels unless the host asks for more: a search of thousands of values in it walks past
// dozens, each of them a cache miss.
#pragma once

#include <cstdint>

#include "property/typed_list.h"
#include "property/value_node.h"

namespace kzddl {

/// A hash table of value nodes by payload, chained through the nodes. It belongs to a property
/// and is guarded with the property's values. Zero-filled memory holds an absent one: a property
/// of few values is as quick without.
class ValueIndex {
 public:
  explicit operator bool() const { return buckets_ != nullptr; }

  /// The value with the payload of a typed string, or null. Only where there is an index.
  vnode *find(const char *typed) const;

  /// Takes in a value that has joined `values`, `count` by now. When memory is short the index
  /// stays as small as it is, or absent.
  void add(vnode &value, const TypedList<vnode> &values, std::int32_t count);

  void remove(vnode &value);

  /// Frees the table's own memory.
  void destroy();

 private:
  vnode *&bucket_of(std::uint32_t hash) const { return buckets_[hash & (size_ - 1)]; }
  void insert(vnode &value);
  bool grow(const TypedList<vnode> &values);

  vnode **buckets_;
  std::uint32_t size_;  ///< a power of two
};

}  // namespace kzddl
