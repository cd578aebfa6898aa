// The skip list against std::set with the same comparator through a function pointer.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <set>

#include "bench/compare.h"
#include "kzddl/ddlskiplist.h"

namespace {

constexpr int levels = 20;
constexpr std::size_t look_ups = 1 << 14;  // more than a branch predictor learns by heart

/// Names of devices, as the property database keeps them.
using Element = std::array<char, 16>;

std::int32_t compare(const void *element, const void *key) {
  const int order = std::memcmp(element, key, sizeof(Element));
  return order < 0 ? -1 : order > 0;
}

class SkipList {
 public:
  void insert(Element *element) { sl_insert(list_.get(), element); }
  void erase(Element *element) { sl_delete(list_.get(), element); }
  const void *find(const Element *key) const { return sl_search(list_.get(), key); }

 private:
  struct Destroy {
    void operator()(sl_list *list) const { sl_destroy(list); }
  };
  std::unique_ptr<sl_list, Destroy> list_{sl_create(levels, 0.5F, compare)};
};

class Set {
 public:
  void insert(Element *element) { set_.insert(element); }
  void erase(Element *element) { set_.erase(element); }
  const void *find(const Element *key) const { return *set_.find(key); }

 private:
  struct Less {
    sl_compare_fn compare;
    bool operator()(const void *a, const void *b) const { return compare(a, b) == -1; }
  };
  std::set<const Element *, Less> set_{Less{compare}};
};

/// A container of `size` elements that were inserted in random order.
template <class Container>
struct Filled {
  explicit Filled(std::size_t size) : elements(size), order(size) {
    for (std::size_t i = 0; i < size; ++i) {
      std::snprintf(elements[i].data(), elements[i].size(), "disk%010zu", i);
      order[i] = &elements[i];
    }
    std::shuffle(order.begin(), order.end(), random);
    for (Element *element : order)
      container.insert(element);
    std::shuffle(order.begin(), order.end(), random);
  }

  std::mt19937 random{42};
  std::vector<Element> elements;
  std::vector<Element *> order;
  Container container;
};

template <class Container>
void search(benchmark::State &state, std::size_t size) {
  Filled<Container> filled(size);
  std::vector<Element *> keys(look_ups);
  for (Element *&key : keys)
    key = &filled.elements[filled.random() % size];
  for (auto _ : state) {
    for (Element *key : keys)
      benchmark::DoNotOptimize(filled.container.find(key));
  }
}

enum class Timed { insertion, deletion };

/// Takes a tenth out of a container of `size` elements and puts it back; one of the two is timed.
template <class Container, Timed timed>
void exchange(benchmark::State &state, std::size_t size) {
  Filled<Container> filled(size);
  const std::size_t batch = size / 10;
  for (auto _ : state) {
    state.PauseTiming();
    for (std::size_t i = 0; i < batch; ++i) {  // another tenth each time
      std::swap(filled.order[i], filled.order[i + filled.random() % (size - i)]);
    }
    const auto erase = [&] {
      for (std::size_t i = 0; i < batch; ++i)
        filled.container.erase(filled.order[i]);
    };
    const auto insert = [&] {
      for (std::size_t i = 0; i < batch; ++i)
        filled.container.insert(filled.order[i]);
    };
    if (timed == Timed::insertion) {
      erase();
      state.ResumeTiming();
      insert();
    } else {
      state.ResumeTiming();
      erase();
      state.PauseTiming();
      insert();
      state.ResumeTiming();
    }
  }
}

void add(std::vector<bench::Comparison> &comparisons, const std::string &job, std::size_t size,
         double reach, void (*ours)(benchmark::State &, std::size_t),
         void (*peer)(benchmark::State &, std::size_t)) {
  const std::string name = job + "/" + std::to_string(size);
  for (const auto &[label, function] : {std::pair{"/sl", ours}, std::pair{"/set", peer}}) {
    benchmark::RegisterBenchmark((name + label).c_str(), function, size)
        ->Repetitions(5)
        ->ReportAggregatesOnly()
        ->MinTime(0.1);
  }
  comparisons.push_back(
      {name, name + "/sl", name + "/set", reach, bench::Comparison::Sense::at_most});
}

}  // namespace

void bench::register_skiplist(std::vector<Comparison> &comparisons) {
  for (const std::size_t size : {std::size_t{1000}, std::size_t{100000}, std::size_t{1000000}}) {
    const bool large = size == 1000000;
    add(comparisons, "sl_search", size, large ? 1.4 : 1.2, search<SkipList>, search<Set>);
    add(comparisons, "sl_insert", size, large ? 1.4 : 1.3, exchange<SkipList, Timed::insertion>,
        exchange<Set, Timed::insertion>);
    add(comparisons, "sl_delete", size, large ? 1.4 : 1.3, exchange<SkipList, Timed::deletion>,
        exchange<Set, Timed::deletion>);
  }
}
