// Name-value lists against a hand-written pass of memcpy with one allocation.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <utility>

#include "bench/compare.h"
#include "kzddl/ddl_name_value_api.h"
#include "kzddl/ddlts.h"

namespace {

constexpr std::size_t count = 1000;

/// 1,000 typed strings of mixed lengths, as one value with their separators.
const std::vector<std::string> &typed_strings() {
  static const std::vector<std::string> strings = [] {
    std::vector<std::string> made;
    for (std::size_t i = 0; i < count; ++i) {
      const std::string text(8 + i % 25, static_cast<char>('a' + i % 26));
      char *typed = nullptr;
      ts_build(KZDDL_TS_TEXT, static_cast<std::uint32_t>(text.size()), text.data(), &typed);
      made.emplace_back(typed, ts_len(typed));
      free(typed);
    }
    return made;
  }();
  return strings;
}

const std::vector<std::string> &pairs() {
  static const std::vector<std::string> made = [] {
    std::vector<std::string> list;
    for (std::size_t i = 0; i < count; ++i) {
      list.push_back("NAME_" + std::to_string(i) + "=" + std::string(8 + i % 25, 'v'));
    }
    return list;
  }();
  return made;
}

/// One block with an array of pointers and the strings, whose lengths are known beforehand.
char **copy_by_hand(const std::vector<std::string> &strings) {
  std::size_t bytes = (strings.size() + 1) * sizeof(char *);
  for (const std::string &string : strings)
    bytes += string.size() + 1;
  auto **pointers = static_cast<char **>(std::malloc(bytes));
  char *to = reinterpret_cast<char *>(pointers + strings.size() + 1);
  for (std::size_t i = 0; i < strings.size(); ++i) {
    pointers[i] = to;
    std::memcpy(to, strings[i].data(), strings[i].size() + 1);
    to += strings[i].size() + 1;
  }
  pointers[strings.size()] = nullptr;
  return pointers;
}

void by_hand(benchmark::State &state, const std::vector<std::string> &strings) {
  for (auto _ : state) {
    char **list = copy_by_hand(strings);
    benchmark::DoNotOptimize(list);
    free(list);
  }
}

void get_value(benchmark::State &state) {
  std::string pair = "NAME";
  for (const std::string &typed : typed_strings())
    pair += (pair.size() == 4 ? "=" : ",") + typed;
  for (auto _ : state) {
    char **values = nullptr;
    benchmark::DoNotOptimize(nv_get_value(pair.c_str(), &values));
    nv_free(values);
  }
}

template <std::size_t... I>
int create(char ***list, const std::vector<std::string> &from, std::index_sequence<I...>) {
  return nv_create_list(list, from[I].c_str()..., nullptr);
}

void create_list(benchmark::State &state) {
  const std::vector<std::string> &from = pairs();
  for (auto _ : state) {
    char **list = nullptr;
    benchmark::DoNotOptimize(create(&list, from, std::make_index_sequence<count>()));
    nv_free(list);
  }
}

}  // namespace

void bench::register_name_value(std::vector<Comparison> &comparisons) {
  const auto configure = [](benchmark::internal::Benchmark *made) {
    made->Repetitions(5)->ReportAggregatesOnly()->MinTime(0.1);
  };
  configure(benchmark::RegisterBenchmark("nv_get_value/nv", get_value));
  configure(benchmark::RegisterBenchmark("nv_get_value/memcpy", by_hand, typed_strings()));
  configure(benchmark::RegisterBenchmark("nv_create_list/nv", create_list));
  configure(benchmark::RegisterBenchmark("nv_create_list/memcpy", by_hand, pairs()));
  for (const char *job : {"nv_get_value", "nv_create_list"}) {
    comparisons.push_back({std::string(job) + " of 1,000", std::string(job) + "/nv",
                           std::string(job) + "/memcpy", 3.0, Comparison::Sense::at_most});
  }
}
