// The command line tool on hostile arrays: whatever devices answer, it says so and ends in order.
//
// KZDDL_HOSTILE_ARRAYS is how many arrays there are, KZDDL_HOSTILE_SEED the first one's seed.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/run_tool.h"

namespace kzddl_test {
namespace {

std::uint64_t setting(const char *variable, std::uint64_t otherwise) {
  const char *text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

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

TEST(ToolOnHostileArrays, TheSeedDecides) {
  const auto discover = [](const char *seed) {
    return run_tool({"--sim", "--sim-hostile", seed, "discover"});
  };
  EXPECT_EQ(discover("5").out, discover("5").out);
  EXPECT_EQ(discover("5").err, discover("5").err);
  EXPECT_NE(discover("5").out, discover("6").out);
  EXPECT_EQ(run_tool({"--sim", "--sim-hostile", "x", "discover"}).status, 2);
}

/// An array of two paths to one disk, with these members in the unit and in the second path.
ToolRun run_on_array(const std::string &in_unit, const std::string &in_path) {
  const MemoryFile array(R"({"units": [{"naa": "600A0B8001020304", )" + in_unit +
                         R"("paths": [{"node": "/dev/sda", "device": "8:0"}, {)" + in_path +
                         R"("node": "/dev/sdb", "device": "8:16"}]}]})");
  const std::string name =
      "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(array.fd());
  return run_tool({"--sim=" + name, "identify", "/dev/sda", "/dev/sdb"});
}

TEST(ToolOnHostileArrays, AUnitOrAPathIsHostile) {
  const ToolRun honest = run_on_array("", "");
  EXPECT_EQ(honest.status, 0) << honest.err;
  const std::string first = honest.out.substr(0, honest.out.find("/dev/sdb"));
  // A seed whose device lies at once.
  EXPECT_NE(run_on_array(R"("hostile": 7, )", "").out.find(first), 0u);
  const ToolRun path = run_on_array("", R"("hostile": 7, )");
  EXPECT_EQ(path.out.find(first), 0u) << path.out;
  EXPECT_NE(path.out, honest.out);
  const ToolRun mistake = run_on_array(R"("hostile": -1, )", "");
  EXPECT_EQ(mistake.status, 2);
  EXPECT_NE(mistake.err.find("/units/0/hostile: expected a whole number"), std::string::npos)
      << mistake.err;
}

}  // namespace
}  // namespace kzddl_test
