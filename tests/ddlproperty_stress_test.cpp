// The database under any mix of operations from several threads, for KZDDL_STRESS_SECONDS
// (2 unless set): no deadlock, no race (run it under ThreadSanitizer), no freed memory, and
// counters and both halves of every link in order, which the library asserts as it goes.
#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

#include "kzddl/ddl_name_value_api.h"
#include "support/log_capture.h"
#include "support/property_test.h"
#include "support/stress.h"

namespace {

using namespace kzddl_test;

template <class T>
std::string address(T *pointer) {
  return typed(std::string(reinterpret_cast<const char *>(&pointer), sizeof pointer), 1);
}

/// Results are released unread: another thread may have removed what they point at.
void discard(int n, const char **array) {
  if (n > 0) std::free(array);
}

/// What an array support library answers: one pair, with `values` as its value.
std::int32_t answer_with(const char *attr, const char *values, char ***list) {
  char *pair = nullptr;
  nv_set_value(&pair, attr, values);
  nv_create_list(list, pair, nullptr);
  nv_free(pair);
  return 0;
}

std::int32_t changing_answer(dip record, const char *attr, char ***list) {
  static std::atomic<unsigned> calls = 0;
  const unsigned n = ++calls;
  EXPECT_EQ(record.odh->devname, std::string(record.path));
  if (n % 5 == 0) return 1;
  return answer_with(attr, n % 2 != 0 ? "a,b" : "b,c,a", list);
}

struct Handler {
  alignas(8) unsigned char lead[4] = {};
  unsigned char record[KZDDL_HANDLER_MUTEX] = {};
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};

class Stress : public DatabaseTest {};

TEST_F(Stress, AnyMixOfOperations) {
  static Handler handler;
  handler.record[KZDDL_HANDLER_FLAGS] = KZDDL_HANDLER_SERIALISE;
  static const Strings names = {"DISK", "disk", "Disk",    "A",       "a",
                                "B",    "b",    "DYNAMIC", "LIBNAME", "C"};
  static const Strings values = {"/dev/null", "/dev/zero", "a", "b", "c", "A", "B", "C"};
  LogCapture log;
  const auto register_library = [] {
    const auto entry = address(changing_answer);
    const auto record = address(handler.record);
    for (const char *disk : {"/dev/null", "/dev/zero"}) {
      set("DISK", {disk});
      for (const char *attr : {"A", "B"}) {
        set("DYNAMIC", {attr});
        associate("DISK", disk, "DYNAMIC", attr);
      }
      set("LIBNAME", {"a"});
      associate("DISK", disk, "LIBNAME", "a");
    }
    set("GET_DYNAMIC_ATTR_ENTRY", {entry});
    set("GET_DLL_HANDLER", {record});
    associate("LIBNAME", "a", "GET_DYNAMIC_ATTR_ENTRY", entry);
    associate("LIBNAME", "a", "GET_DLL_HANDLER", record);
  };
  register_library();

  run_threads(4, [&](std::mt19937 &random) {
    const auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
    const std::string &p = names[below(names.size())], &q = names[below(names.size())];
    const std::string &x = values[below(values.size())], &y = values[below(values.size())];
    const char **first = nullptr;
    const char **second = nullptr;
    int n = 0;
    switch (below(64)) {
      case 0:
        destroy_property(p.c_str());
        break;
      case 1:
        create_property(p.c_str(), 0, 0, 0);
        break;
      case 2:
        print_property_list();
        break;
      case 3:
      case 4:
        register_library();
        break;
      default:
        switch (below(9)) {
          case 0:
            set(p, {x, y});
            break;
          case 1:
            erase(p, {x});
            break;
          case 2:
          case 3:
            associate(p, x, q, y);
            break;
          case 4:
            dissociate(p, x, q, y);
            break;
          case 5:
            n = get_property(p.c_str(), &first);
            break;
          case 6:
            n = get_asso(p.c_str(), x.c_str(), &first, &second);
            break;
          case 7:
            n = get_asso_val(p.c_str(), x.c_str(), q.c_str(), &first);
            break;
          default:
            n = select_asso_val(p.c_str(), x.c_str(), below(7), q.c_str(), &first);
        }
    }
    discard(n, first);
    discard(n, second);
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

std::int32_t steady_answer(dip, const char *attr, char ***list) {
  return answer_with(attr, "shared,value", list);
}

TEST_F(Stress, DisksThatShareAnAnswerKeepItWhileTheyAreFetched) {
  const Strings disks = disks_answered_by(steady_answer);
  run_threads(4, [&](std::mt19937 &random) {
    // Entries are read: a value that the library reports again is never removed.
    EXPECT_EQ(linked("DISK", disks[random() % disks.size()], "A"), (Strings{"value", "shared"}));
  });
  EXPECT_EQ(links_of("A", "shared").size(), disks.size());
}

/// What the calling thread's disk answers next.
thread_local std::string next_answer;

std::int32_t own_answer(dip, const char *attr, char ***list) {
  return answer_with(attr, next_answer.c_str(), list);
}

TEST_F(Stress, NoDiskLosesAnAnswerThatAnotherGivesUp) {
  const Strings disks = disks_answered_by(own_answer);
  std::atomic<unsigned> threads = 0;
  run_threads(static_cast<unsigned>(disks.size()), [&](std::mt19937 &random) {
    thread_local const std::string &disk = disks[threads++];
    next_answer = random() % 2 != 0 ? "x" : "y";
    EXPECT_EQ(linked("DISK", disk, "A"), Strings{next_answer});
  });
}

/// Between two writes there are so many reads that readers are admitted without the locks.
TEST_F(Stress, ASeldomWriterFindsNoReaderInside) {
  std::atomic<bool> a_writer_exists = false;
  const auto build = [] {
    for (int i = 0; i < 8; ++i)
      relate("P", "p", "Q", std::to_string(i));
  };
  run_threads(3, [&](std::mt19937 &random) {
    thread_local const bool writes = !a_writer_exists.exchange(true);
    const char **values = nullptr;
    const char **names = nullptr;
    if (writes) {
      destroy_property(random() % 2 != 0 ? "P" : "Q");
      build();
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    } else if (random() % 2 != 0) {
      const int n = get_asso_val_ts("P", "p", "Q", &values);
      discard(n, values);
    } else {
      const int n = get_asso_ts("P", "p", &names, &values);
      discard(n, names);
      discard(n, values);
    }
  });
}

}  // namespace
