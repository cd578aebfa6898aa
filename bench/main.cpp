// Runs every benchmark with its peer in this one process and prints the table of ratios.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>

#include "bench/compare.h"

namespace {

using bench::Comparison;

/// Prints as the console does, and keeps the median real time of each benchmark.
class Keeper : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.aggregate_name == "median") {
        medians[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  std::map<std::string, double> medians;
};

bool print_ratio(const Comparison &comparison, const std::map<std::string, double> &medians) {
  const auto ours = medians.find(comparison.ours);
  const auto peer = medians.find(comparison.peer);
  if (ours == medians.end() || peer == medians.end()) return true;  // filtered out
  const bool at_most = comparison.sense == Comparison::Sense::at_most;
  const double ratio = at_most ? ours->second / peer->second : peer->second / ours->second;
  const bool reached = at_most ? ratio <= comparison.reach : ratio >= comparison.reach;
  std::printf("%-46s %8.2f  %s %5.2f  %s\n", comparison.job.c_str(), ratio,
              at_most ? "at most " : "at least", comparison.reach, reached ? "reached" : "MISSED");
  return reached;
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<Comparison> comparisons;
  std::vector<bench::Figure> figures;
  // The database first: it is looked up as a process finds it that built it, not in a heap that
  // a million freed nodes have been scattered over.
  bench::register_database(comparisons, figures);
  bench::register_skiplist(comparisons);
  bench::register_name_value(comparisons);
  bench::register_commands(comparisons);

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  Keeper keeper;
  benchmark::RunSpecifiedBenchmarks(&keeper);

  std::printf("\n%-46s %8s  %s\n", "job", "ratio", "reach");
  bool reached = true;
  for (const Comparison &comparison : comparisons) {
    reached = print_ratio(comparison, keeper.medians) && reached;
  }
  for (const bench::Figure &figure : figures) {
    const double value = figure.measure();
    const bool small = value <= figure.at_most;
    std::printf("%-46s %8.1f  at most  %5.0f %s  %s\n", figure.job.c_str(), value, figure.at_most,
                figure.unit.c_str(), small ? "reached" : "MISSED");
    reached = small && reached;
  }
  return reached ? 0 : 1;
}
