// The tool on a real kernel's disks.
#include <nlohmann/json.hpp>

#include "kernel/kernel_disks.h"
#include "support/run_tool.h"

namespace kzddl_test {
namespace {

using nlohmann::json;

ToolRun run(std::vector<std::string> arguments, std::string_view input = {}) {
  if (!indirect()) arguments.insert(arguments.end(), {"--route", "direct"});
  return run_tool(arguments, input);
}

/// What the tool answers to a command that must succeed.
json ask(std::vector<std::string> arguments) {
  arguments.emplace_back("--json");
  const ToolRun tool = run(arguments);
  EXPECT_EQ(tool.status, 0) << arguments[0] << ": " << tool.err;
  json answer = json::parse(tool.out, nullptr, false);
  EXPECT_FALSE(answer.is_discarded()) << tool.out;
  return answer;
}

class KernelTool : public testing::Test {
 protected:
  /// On IA-64, where nothing vouches for the answer, the tool refuses the command.
  static bool is_refused(const std::vector<std::string> &arguments) {
    if (ddl_is_arch_ia64() == 0) return false;
    const ToolRun tool = run(arguments);
    EXPECT_EQ(tool.status, 1);
    EXPECT_NE(tool.err.find("on IA-64"), std::string::npos) << tool.err;
    return true;
  }

  const std::string debug = debug_disks().at(0).node;
  const std::string a = two_paths().at(0).node;
  const std::string b = two_paths().at(1).node;
  const std::string network = network_disks().at(0).node;
};

TEST_F(KernelTool, DiscoveryPutsThePathsOfAUnitTogether) {
  const json units = ask({"discover"}).at("logical_units");
  ASSERT_EQ(units.size(), 4u);
  const auto unit = std::find_if(units.begin(), units.end(), [](const json &candidate) {
    return candidate.at("vendor") == "LIO-ORG";
  });
  ASSERT_NE(unit, units.end());
  EXPECT_EQ(unit->at("capacity"), 16777216);
  EXPECT_EQ(unit->at("cabinet_serial"), "0123456789abcdef");
  const json &paths = unit->at("paths");
  ASSERT_EQ(paths.size(), 2u);
  for (const json &path : paths) {
    EXPECT_EQ(path.at("port_group"), path.at("node") == a ? 0 : 1);
    EXPECT_EQ(path.at("access_state"), "active/optimized");
    EXPECT_EQ(path.at("ready"), true);
  }
}

TEST_F(KernelTool, ReservationsKeepTheOtherPathOut) {
  if (is_refused({"reservations", a, "register", "--new-key", "abc1"})) return;
  EXPECT_EQ(ask({"reservations", a, "register", "--new-key", "abc1"}).at("keys").size(), 1u);
  ask({"reservations", a, "reserve", "--key", "abc1", "--type", "exclusive-access"});
  EXPECT_EQ(ask({"reservations", b}).at("keys"), json({"000000000000ABC1"}));
  EXPECT_FALSE(ask({"reservations", b}).at("reservation").is_null());
  const ToolRun kept_out = run({"capacity", b});
  EXPECT_EQ(kept_out.status, 1);
  EXPECT_NE(kept_out.err.find("RESERVATION CONFLICT"), std::string::npos) << kept_out.err;
  EXPECT_TRUE(ask({"reservations", a, "clear", "--key", "abc1"}).at("keys").empty());
  EXPECT_EQ(ask({"capacity", b}).at(0).at("blocks"), 32768);
}

TEST_F(KernelTool, BlocksAreWrittenAndReadBack) {
  if (is_refused({"read", a, "--lba", "2000", "--count", "1"})) return;
  std::string content(300 * 512, '\0');
  for (std::size_t i = 0; i < content.size(); ++i)
    content[i] = static_cast<char>(i * 13 + i / 512);
  for (const auto &[written_to, read_from] :
       {std::pair{a, b}, {debug, debug}, {network, network}}) {
    const ToolRun write = run({"write", written_to, "--lba", "2000", "--yes"}, content);
    EXPECT_EQ(write.status, 0) << write.err;
    const ToolRun read = run({"read", read_from, "--lba", "2000", "--count", "300"});
    EXPECT_EQ(read.status, 0) << read.err;
    EXPECT_TRUE(read.out == content) << read_from;
  }
}

}  // namespace
}  // namespace kzddl_test
