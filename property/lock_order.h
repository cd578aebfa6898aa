// The order of the library's locks, and its check: a build with KZDDL_CHECK_LOCKS remembers
// which locks a thread holds and stops it where it takes one out of order, whether or not
// another thread is there to make a deadlock of it.
#pragma once

#include <cstring>

namespace kzddl {

/// In the order in which a thread takes them.
enum class LockRank {
  handler,      ///< an array support library's: its entry point may call anything
  replacement,  ///< of a fetched attribute's values
  generic,
  property,  ///< several at once in the order of their names
  leaf,      ///< the version and geometry mutexes
};

struct LockIdentity {
  const void *address = nullptr;
  const char *name = nullptr;
  LockRank rank = LockRank::leaf;
};

/// May a thread that holds `first` take `second`?
inline bool is_in_order(const LockIdentity &first, const LockIdentity &second) {
  if (first.rank != second.rank) return first.rank < second.rank;
  if (first.rank == LockRank::handler) return true;
  return first.rank == LockRank::property && std::strcmp(first.name, second.name) < 0;
}

#ifdef KZDDL_CHECK_LOCKS
/// Call before the lock is taken. Aborts, and names both locks, when one that is held comes
/// after it.
void check_order(const LockIdentity &lock);
/// Call after it was released.
void forget_lock(const LockIdentity &lock);
#else
inline void check_order(const LockIdentity & /*lock*/) {}
inline void forget_lock(const LockIdentity & /*lock*/) {}
#endif

}  // namespace kzddl
