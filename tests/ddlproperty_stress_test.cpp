// The database under any mix of operations from several threads: no deadlock, no race (run it
// under ThreadSanitizer), no freed memory, and counters and both halves of every link in order,
// which the library asserts as it goes.
#include <atomic>

#include "support/log_capture.h"
#include "support/property_test.h"
#include "support/stress.h"

namespace {

using namespace kzddl_test;

std::int32_t changing_answer(dip record, const char *attr, char ***list) {
  static std::atomic<unsigned> calls = 0;
  const unsigned n = ++calls;
  EXPECT_EQ(record.odh->devname, std::string(record.path));
  if (n % 5 == 0) return 1;
  return answer_with(attr, n % 2 != 0 ? "a,b" : "b,c,a", list);
}

using Stress = DatabaseTest;

Handler handler;

/// No value may be missing for long, whatever the other threads remove.
void register_library() {
  const auto link = [](const char *p, const std::string &x, const char *q, const std::string &y) {
    set(p, {x});
    set(q, {y});
    associate(p, x, q, y);
  };
  for (const char *disk : {"/dev/null", "/dev/zero"}) {
    link("DISK", disk, "DYNAMIC", "A");
    link("DISK", disk, "DYNAMIC", "B");
    link("DISK", disk, "LIBNAME", "a");
  }
  link("LIBNAME", "a", "GET_DYNAMIC_ATTR_ENTRY", address(changing_answer));
  link("LIBNAME", "a", "GET_DLL_HANDLER", address(handler.record));
}

/// What an operation is called with, and the arrays that it hands out.
struct Call {
  const char *p, *x, *q, *y;
  unsigned op;
  const char **first = nullptr, **second = nullptr;
};

int (*const rare[])(Call &) = {
    [](Call &c) { return destroy_property(c.p); },
    [](Call &c) { return create_property(c.p, 0, 0, 0); },
    [](Call &) { return print_property_list(), 0; },
    [](Call &) { return register_library(), 0; },
    [](Call &) { return register_library(), 0; },
};
int (*const changes[])(Call &) = {
    [](Call &c) {
      return set(c.p, {c.x, c.y});
    },
    [](Call &c) { return erase(c.p, {c.x}); },
    [](Call &c) { return set_asso(c.p, c.x, c.q, c.y); },
    [](Call &c) { return set_asso(c.p, c.y, c.q, c.x); },
    [](Call &c) { return delete_asso(c.p, c.x, c.q, c.y); },
};
int (*const reads[])(Call &) = {
    [](Call &c) { return get_property(c.p, &c.first); },
    [](Call &c) { return get_asso(c.p, c.x, &c.first, &c.second); },
    [](Call &c) { return get_asso_val(c.p, c.x, c.q, &c.first); },
    [](Call &c) { return select_asso_val(c.p, c.x, c.op, c.q, &c.first); },
};

/// Results are released unread: another thread may have removed what they point at.
template <std::size_t Size>
void call_one(int (*const (&operations)[Size])(Call &), std::mt19937 &random, Call call) {
  if (operations[random() % Size](call) <= 0) return;
  std::free(call.first);
  std::free(call.second);
}

TEST_F(Stress, AnyMixOfOperations) {
  static const char *const names[] = {"DISK", "disk", "Disk",    "A",       "a",
                                      "B",    "b",    "DYNAMIC", "LIBNAME", "C"};
  static const char *const values[] = {"/dev/null", "/dev/zero", "a", "b", "c", "A", "B", "C"};
  LogCapture log;
  handler.record[KZDDL_HANDLER_FLAGS] = KZDDL_HANDLER_SERIALISE;
  register_library();
  run_threads(4, [](std::mt19937 &random, unsigned) {
    const auto pick = [&random](auto &list) { return list[random() % std::size(list)]; };
    const Call call{pick(names), pick(values), pick(names), pick(values), unsigned(random() % 7)};
    const auto draw = random() % 13;
    if (draw == 0) return call_one(rare, random, call);
    if (draw < 8) return call_one(changes, random, call);
    call_one(reads, random, call);
  });
  print_property_list();
}

/// Three disks with the dynamic attribute A, which `entry` answers for.
Strings disks_answered_by(get_dynamic_attr_fn entry) {
  Strings disks = {"/dev/null", "/dev/zero", "/dev/full"};
  relate("LIBNAME", "lib", "GET_DYNAMIC_ATTR_ENTRY", address(entry));
  for (const std::string &disk : disks) {
    relate("DISK", disk, "DYNAMIC", "A");
    relate("DISK", disk, "LIBNAME", "lib");
  }
  return disks;
}

TEST_F(Stress, DisksThatShareAnAnswerKeepItWhileTheyAreFetched) {
  const Strings disks = disks_answered_by(
      [](dip, const char *attr, char ***list) { return answer_with(attr, "shared,value", list); });
  run_threads(4, [&](std::mt19937 &random, unsigned) {
    // Entries are read: a value that the library reports again is never removed.
    EXPECT_EQ(linked("DISK", disks[random() % disks.size()], "A"), (Strings{"value", "shared"}));
  });
  EXPECT_EQ(links_of("A", "shared").size(), disks.size());
}

/// What the calling thread's disk answers next.
thread_local std::string next_answer;

TEST_F(Stress, NoDiskLosesAnAnswerThatAnotherGivesUp) {
  const Strings disks = disks_answered_by(
      [](dip, const char *attr, char ***list) { return answer_with(attr, next_answer, list); });
  run_threads(static_cast<unsigned>(disks.size()), [&](std::mt19937 &random, unsigned number) {
    next_answer = random() % 2 != 0 ? "x" : "y";
    EXPECT_EQ(linked("DISK", disks[number], "A"), Strings{next_answer});
  });
}

/// Between two writes there are so many reads that readers are admitted without the locks.
TEST_F(Stress, ASeldomWriterFindsNoReaderInside) {
  run_threads(3, [](std::mt19937 &random, unsigned number) {
    if (number != 0) return call_one(reads, random, {"P", "p", "Q", "0", KZDDL_ASSO_DIFFERENT});
    destroy_property(random() % 2 != 0 ? "P" : "Q");
    for (int i = 0; i < 8; ++i)
      relate("P", "p", "Q", std::to_string(i));
    std::this_thread::sleep_for(std::chrono::microseconds(500));
  });
}

}  // namespace
