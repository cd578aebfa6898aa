// The check of the order of locks: its own rules. That the library keeps them, every other test
// shows in a build with the check.
#include "property/lock_order.h"

#include <gtest/gtest.h>

namespace {

using kzddl::LockIdentity;
using kzddl::LockRank;

int addresses[5];
const LockIdentity handler{&addresses[0], "a handler mutex", LockRank::handler};
const LockIdentity generic{&addresses[1], "the generic lock", LockRank::generic};
const LockIdentity a{&addresses[2], "A", LockRank::property};
const LockIdentity b{&addresses[3], "B", LockRank::property};
const LockIdentity geometry{&addresses[4], "the geometry mutex", LockRank::leaf};

void take(std::initializer_list<LockIdentity> locks) {
  for (const LockIdentity &lock : locks)
    kzddl::check_order(lock);
}

TEST(LockOrder, RightOrdersPassAndReleasedLocksAreForgotten) {
  take({handler, handler, generic, a, b, geometry});
  for (const LockIdentity &lock : {generic, b, handler, a, geometry})
    kzddl::forget_lock(lock);
  take({b, geometry});
  kzddl::forget_lock(geometry);
  kzddl::forget_lock(b);
  take({generic, a, b});
}

TEST(LockOrder, WrongOrdersAbortAndNameBothLocks) {
  const auto message = [](const char *taken, const char *held) {
    return std::string("lock order: ") + taken + " is taken while " + held + " is held";
  };
  EXPECT_DEATH(take({a, generic}), message("the generic lock", "A"));
  EXPECT_DEATH(take({generic, b, a}), message("A", "B"));
  EXPECT_DEATH(take({a, a}), message("A", "A"));
  EXPECT_DEATH(take({geometry, generic}), message("the generic lock", "the geometry mutex"));
  EXPECT_DEATH(take({generic, handler}), message("a handler mutex", "the generic lock"));
}

}  // namespace
