// What the calling thread holds.
#include "property/lock_order.h"

#ifdef KZDDL_CHECK_LOCKS

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace kzddl {

namespace {

constexpr int most_locks = 16;

struct Held {
  LockIdentity locks[most_locks];
  int count = 0;
};

thread_local Held held;

}  // namespace

void check_order(const LockIdentity &lock) {
  for (int i = 0; i < held.count; ++i) {
    if (is_in_order(held.locks[i], lock)) continue;
    std::fprintf(stderr, "kzddl: lock order: %s is taken while %s is held\n", lock.name,
                 held.locks[i].name);
    std::abort();
  }
  if (held.count == most_locks) std::abort();
  held.locks[held.count++] = lock;
}

void forget_lock(const LockIdentity &lock) {
  const auto is_it = [&lock](const LockIdentity &other) { return other.address == lock.address; };
  LockIdentity *end = held.locks + held.count;
  held.count = static_cast<int>(std::remove_if(held.locks, end, is_it) - held.locks);
}

}  // namespace kzddl

#endif
