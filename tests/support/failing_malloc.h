// Makes the library's n-th allocation fail, to see what it does then.
#pragma once

namespace kzddl_test {

/// While it lives, the `n`-th (from 1) malloc, calloc or realloc that the library calls returns
/// null. Allocations of anyone else go on as ever. One at a time, and not with other threads
/// inside the library.
class FailMalloc {
 public:
  explicit FailMalloc(long n);
  ~FailMalloc();
  FailMalloc(const FailMalloc &) = delete;
  FailMalloc &operator=(const FailMalloc &) = delete;

  /// Has an allocation failed? When not, the operation made fewer than n.
  bool happened() const;
};

/// Counts the library's allocations while it lives.
class CountMalloc {
 public:
  CountMalloc();
  ~CountMalloc();
  CountMalloc(const CountMalloc &) = delete;
  CountMalloc &operator=(const CountMalloc &) = delete;

  long count() const;
};

/// How many blocks the library allocated while the last of these lived and has not freed since:
/// 256 of them are kept in view.
long live_blocks();

}  // namespace kzddl_test
