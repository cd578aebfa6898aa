// The command line tool on hostile arrays: whatever devices answer, it says so and ends in order.
//
// KZDDL_HOSTILE_ARRAYS is how many arrays there are, KZDDL_HOSTILE_SEED the first one's seed.
#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/run_tool.h"
#include "support/setting.h"

namespace kzddl_test {
namespace {

/// Lines without control characters.
bool is_plain(const std::string &text) {
  return std::ranges::all_of(
      text, [](char c) { return c == '\n' || static_cast<unsigned char>(c) >= 0x20; });
}

bool is_errors(const std::string &text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("kzddl: ")) return false;
  }
  return text.empty() || text.back() == '\n';
}

const std::vector<std::string> commands[] = {
    {"discover"},
    {"discover", "--json"},
    {"discover", "--route", "direct"},
    {"discover", "--dot"},
    {"database", "--json"},
    {"groups", "/dev/sda"},
    {"reservations", "/dev/sda"},
    {"copy-limits", "/dev/sda", "/dev/sdb"},
    {"modes", "/dev/sda"},
    {"capacity", "/dev/sda", "/dev/sdb", "/dev/sdc", "/dev/sdd"},
    {"geometry", "/dev/sda", "/dev/sdb"},
    {"inquiry", "/dev/sda"},
    {"inquiry", "/dev/sda", "--page", "83"},
    {"identify", "/dev/sda", "/dev/sdb", "--json"},
    {"ready", "/dev/sda", "/dev/sdb"},
    {"reserved", "/dev/sda", "/dev/sdb"},
    {"read", "/dev/sda", "--lba", "0", "--count", "64", "--out", "/dev/null"},
    {"send", "/dev/sda", "--cdb", "12 00 00 00 60 00", "--in", "96"},
};

TEST(ToolOnHostileArrays, EndsInOrder) {
  const std::uint64_t first = setting("KZDDL_HOSTILE_SEED", 1);
  const std::uint64_t count = setting("KZDDL_HOSTILE_ARRAYS", 4);
  for (std::uint64_t seed = first; seed < first + count; ++seed) {
    for (std::vector<std::string> arguments : commands) {
      const std::string what = testing::PrintToString(arguments);
      SCOPED_TRACE("--sim-hostile " + std::to_string(seed) + ", " + what);
      const bool is_json = std::ranges::find(arguments, "--json") != arguments.end();
      // Blocks past the capacity that the device claims are the user's mistake.
      const int worst = arguments.front() == "read" ? 2 : 1;
      arguments.insert(arguments.begin(), {"--sim", "--sim-hostile", std::to_string(seed)});
      const ToolRun run = run_tool(arguments);
      EXPECT_GE(run.status, 0) << "a signal";
      EXPECT_LE(run.status, worst);
      EXPECT_TRUE(run.status != 0 || run.err.empty()) << "an error is a failure\n" << run.err;
      EXPECT_TRUE(is_errors(run.err)) << run.err;
      EXPECT_TRUE(is_plain(run.err)) << run.err;
      EXPECT_TRUE(is_plain(run.out)) << run.out;
      EXPECT_TRUE(!is_json || run.out.empty() || nlohmann::json::accept(run.out)) << run.out;
      EXPECT_FALSE(run.out.empty() && run.err.empty()) << "says nothing";
    }
  }
}

}  // namespace
}  // namespace kzddl_test
