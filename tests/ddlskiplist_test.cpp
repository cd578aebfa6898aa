// The skip list against a map, with wildcard keys, and its stated structure node by node.
#include "kzddl/ddlskiplist.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace {

using namespace kzddl_test;

constexpr int any = -1;

struct Item {
  int major;
  int minor;
  auto operator<=>(const Item &) const = default;
};

using Elements = std::vector<const void *>;

/// What the operation under test compared, in order.
Elements compared;

int sign(int a, int b) { return (a > b) - (a < b); }

/// Orders by both fields; `any` and a null key are wildcards.
int32_t compare_items(const void *element, const void *key) {
  compared.push_back(element);
  if (key == nullptr) return 0;
  const auto *a = static_cast<const Item *>(element);
  const auto *b = static_cast<const Item *>(key);
  if (a->major != b->major) return sign(a->major, b->major);
  return b->minor == any ? 0 : sign(a->minor, b->minor);
}

int32_t compare_ints(const void *a, const void *b) {
  return sign(*static_cast<const int *>(a), *static_cast<const int *>(b));
}

/// Runs an operation and expects that it compared no element twice.
template <class F>
auto comparing_once(F operation) {
  compared.clear();
  auto result = operation();
  std::sort(compared.begin(), compared.end());
  EXPECT_EQ(std::adjacent_find(compared.begin(), compared.end()), compared.end());
  return result;
}

/// The match that a search meets first when it compares anew at every level.
void *first_met(const sl_list *list, const void *key) {
  sl_node *const *links = list->forward;
  for (int level = list->level; level >= 0; --level) {
    for (sl_node *next = links[level]; next != nullptr; next = links[level]) {
      const int order = list->compare(next->element, key);
      if (order == 0) return next->element;
      if (order != -1) break;
      links = next->forward;
    }
  }
  return nullptr;
}

Elements elements_at(const sl_list *list, int level) {
  Elements elements;
  for (const sl_node *node = list->forward[level]; node != nullptr; node = node->forward[level]) {
    EXPECT_EQ(static_cast<const void *>(node->forward), node + 1);
    elements.push_back(node->element);
  }
  return elements;
}

/// Each level holds some of the elements below, in order, and the highest in use at least one.
void expect_sound(const sl_list *list, Elements below) {
  const auto before = [](const void *a, const void *b) { return compare_items(a, b) == -1; };
  EXPECT_EQ(elements_at(list, 0), below);
  for (int level = 1; level <= list->max_level; ++level) {
    const Elements here = elements_at(list, level);
    EXPECT_TRUE(std::includes(below.begin(), below.end(), here.begin(), here.end(), before));
    EXPECT_EQ(here.empty(), level > list->level);
    below = here;
  }
}

struct Visit {
  Elements seen;
  std::size_t stop_after = 0;
};

int32_t collect(const void * /*key*/, void *element, void *visit, void *stop_code) {
  auto *v = static_cast<Visit *>(visit);
  v->seen.push_back(element);
  return v->seen.size() == v->stop_after ? *static_cast<int *>(stop_code) : 0;
}

class Levels : public testing::TestWithParam<int> {};

TEST_P(Levels, BehavesAsAMap) {
  std::mt19937 random(GetParam());
  const auto draw = [&random](int n) { return static_cast<int>(random() % n); };
  std::deque<Item> store;
  std::map<Item, Item *> model;
  const auto matching = [&model](const Item *key) {
    Elements elements;
    for (const auto &[item, element] : model)
      if (compare_items(&item, key) == 0) elements.push_back(element);
    return elements;
  };
  sl_list *list = sl_create(GetParam(), 0.5F, compare_items);
  ASSERT_NE(list, nullptr);

  for (int i = 0; i < 6000 && !HasFailure(); ++i) {
    // Twice growing, then shrinking until it is empty.
    const bool growing = i % 3000 < 1200;
    const Item key{draw(20), draw(4) == 0 ? any : draw(20)};
    Elements wanted = matching(&key);
    if (draw(4) < (growing ? 2 : 1) && key.minor != any) {
      Item *element = &store.emplace_back(key);
      Item *held = model.try_emplace(key, element).first->second;
      EXPECT_EQ(comparing_once([&] { return sl_insert(list, element); }), held);
    } else if (draw(3) < (growing ? 1 : 2)) {
      EXPECT_EQ(comparing_once([&] { return sl_delete(list, &key); }), wanted.empty() ? -1 : 0);
      if (!wanted.empty()) model.erase(*static_cast<const Item *>(wanted[0]));
    } else {
      void *found = comparing_once([&] { return sl_search(list, &key); });
      EXPECT_EQ(found, first_met(list, &key));
      EXPECT_EQ(found == nullptr, wanted.empty());

      int stop_code = draw(2) == 0 ? 1 : -7;
      Visit run{{}, static_cast<std::size_t>(draw(3))};
      Visit walk{{}, run.stop_after};
      const bool stops = run.stop_after != 0 && run.stop_after <= wanted.size();
      const int result = sl_search_and_walk(list, &key, collect, &run, &stop_code);
      EXPECT_EQ(result, wanted.empty() ? 0 : stops ? stop_code : 1);
      const auto after = model.upper_bound({key.major, key.minor == any ? 20 : key.minor});
      if (result == 1 && !stops && after != model.end()) {
        EXPECT_EQ(compared.back(), after->second);
      }
      if (stops) wanted.resize(run.stop_after);
      EXPECT_EQ(run.seen, wanted);
      sl_walk(list, &key, collect, &walk, &stop_code);
      EXPECT_EQ(walk.seen, wanted);
    }
    if (i % 50 == 0 || i > 5900) expect_sound(list, matching(nullptr));
  }
  EXPECT_EQ(sl_destroy(list), 0);
}

INSTANTIATE_TEST_SUITE_P(SkipList, Levels, testing::Values(1, 2, 5, 8, 32));

TEST(SkipList, NeedsAListOfOneToThirtyTwoLevels) {
  int key = 1;
  for (int levels : {-1, 0, KZDDL_SL_MAX_LEVELS + 1})
    EXPECT_EQ(sl_create(levels, 0.5F, compare_ints), nullptr) << levels;
  EXPECT_EQ(sl_insert(nullptr, &key), nullptr);
  EXPECT_EQ(sl_search(nullptr, &key), nullptr);
  EXPECT_EQ(sl_delete(nullptr, &key), -1);
  EXPECT_EQ(sl_destroy(nullptr), -1);
  Visit visit;
  sl_walk(nullptr, &key, collect, &visit, nullptr);
  EXPECT_EQ(sl_search_and_walk(nullptr, &key, collect, &visit, nullptr), 0);
  EXPECT_TRUE(visit.seen.empty());
  LogCapture log;
  sl_print(nullptr, nullptr);
  sl_print_int(nullptr);
  EXPECT_EQ(log.text(), "Nothing in list.\nNothing in list.\n");
}

TEST(SkipList, WalksPastGreaterElements) {
  const auto odd_last = [](const void *element, const void *key) -> int32_t {
    if (key != nullptr) return compare_ints(element, key);
    return *static_cast<const int *>(element) % 2;
  };
  int values[] = {1, 2, 3, 4};
  sl_list *list = sl_create(8, 0.5F, odd_last);
  for (int &value : values)
    sl_insert(list, &value);
  Visit all;
  sl_walk(list, nullptr, collect, &all, nullptr);
  EXPECT_EQ(all.seen, (Elements{&values[1], &values[3]}));
  sl_destroy(list);
}

TEST(SkipList, DrawsLevelsWithTheGeneratorOfTheProcess) {
  constexpr int levels = 4;
  std::vector<int> values(500);
  sl_list *list = sl_create(levels, 0.9F, compare_ints);
  int first = -1;
  sl_insert(list, &first);  // seeds, once in the process
  sl_delete(list, &first);

  srand48(42);
  std::vector<int> expected;
  for (std::size_t i = 0; i < values.size(); ++i) {
    int level = 0;
    while (lrand48() <= 0x3FFFFFFE)
      ++level;
    expected.push_back(std::min(level, levels - 1));
  }
  srand48(42);
  std::vector<int> drawn(values.size(), -1);
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = static_cast<int>(i);
    sl_insert(list, &values[i]);
  }
  for (int level = 0; level < levels; ++level) {
    for (const void *element : elements_at(list, level))
      ++drawn[*static_cast<const int *>(element)];
  }
  EXPECT_EQ(drawn, expected);
  sl_destroy(list);

  // At one half: the generator's states that draw 0x3FFFFFFF and 0x3FFFFFFE next.
  unsigned short states[][3] = {{0x2AA9, 0xE77C, 0x29C5}, {0x2AA9, 0xC0B2, 0x722F}};
  for (const int level : {0, 1}) {
    sl_list *one = sl_create(2, 0.5F, compare_ints);
    seed48(states[level]);
    sl_insert(one, &first);
    EXPECT_EQ(one->level, level);
    sl_destroy(one);
  }
}

TEST(SkipList, PrintsInOrder) {
  int values[] = {30, 10, 20};
  sl_list *list = sl_create(1, 0.5F, compare_ints);
  for (int &value : values)
    sl_insert(list, &value);
  const std::string expected =
      "Level 0 list\n\tElement = 0 Value = 10\n\tElement = 1 Value = 20\n"
      "\tElement = 2 Value = 30\n";
  LogCapture log;
  sl_print_int(list);
  sl_print(list, [](const void *element) {
    const int value = *static_cast<const int *>(element);
    return value == 10 ? "10" : value == 20 ? "20" : "30";
  });
  EXPECT_EQ(log.text(), expected + expected);
  sl_destroy(list);
}

TEST(SkipList, SeedsOnceForAllThreads) {
  int value = 7;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&value] {
      sl_list *list = sl_create(8, 0.5F, compare_ints);
      EXPECT_EQ(sl_insert(list, &value), &value);
      sl_destroy(list);
    });
  }
  for (std::thread &thread : threads)
    thread.join();
}

}  // namespace
