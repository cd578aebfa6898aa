// A comparison of two benchmarks: ours and a peer's, and the ratio we hold ourselves to.
#pragma once

#include <string>
#include <vector>

namespace bench {

struct Comparison {
  std::string job;
  std::string ours;  ///< benchmark names
  std::string peer;
  double reach;
  /// Whether the ratio is ours / peer and at most `reach`, or peer / ours and at least `reach`.
  enum class Sense { at_most, at_least } sense;
};

/// A figure that is stated, not timed; measured after everything else has run.
struct Figure {
  std::string job;
  double (*measure)();
  std::string unit;
  double at_most;
};

/// What each file of benchmarks registers and compares.
void register_skiplist(std::vector<Comparison> &comparisons);
void register_database(std::vector<Comparison> &comparisons, std::vector<Figure> &figures);
void register_commands(std::vector<Comparison> &comparisons);
void register_name_value(std::vector<Comparison> &comparisons);

}  // namespace bench
