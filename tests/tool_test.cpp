// The command line tool as its users meet it: sessions written down in tests/sessions, replayed,
// and what they cannot hold.
//
//   % OPTION...   what the commands from here on end with ({store}: a directory of the session's
//                 own; {example}: the example library)
//   $ ARGUMENT... a command of the tool, in the directory tests/data; "u $" with UTF-8
//   < TEXT        a line of its standard input
//   ! TEXT        a line of its standard error
//   = STATUS      its exit status, where it is not 0
//
// All other lines are its standard output.
#include <filesystem>
#include <fstream>
#include <future>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/run_tool.h"

namespace kzddl_test {
namespace {

struct Step {
  std::string command;
  std::vector<std::string> arguments;
  std::string locale = "C";
  std::string input;
  ToolRun expected{.status = 0};
};

void replace(std::string &text, std::string_view placeholder, const std::string &value) {
  const std::size_t at = text.find(placeholder);
  if (at != std::string::npos) text.replace(at, placeholder.size(), value);
}

class ToolSession : public testing::TestWithParam<const char *> {
 protected:
  ToolSession() {
    std::filesystem::create_directory(store_);
    std::filesystem::current_path(KZDDL_TEST_DATA);
  }
  ~ToolSession() override { std::filesystem::remove_all(store_); }

  /// The words of a line; one with blanks stands in double quotes.
  std::vector<std::string> words(const std::string &line) const {
    std::istringstream stream(line);
    std::vector<std::string> list;
    for (std::string word; stream >> std::quoted(word, '"', '\0');) {
      replace(word, "{store}", store_);
      replace(word, "{example}", KZDDL_EXAMPLE_ASL);
      list.push_back(word);
    }
    return list;
  }

  std::vector<Step> steps(const std::string &file) const {
    std::ifstream stream(file);
    EXPECT_TRUE(stream) << file;
    std::vector<Step> list;
    std::vector<std::string> options;
    for (std::string line; std::getline(stream, line);) {
      const std::string text = line.size() > 2 ? line.substr(2) : "";
      const bool utf8 = line.starts_with("u $ ");
      if (line.starts_with("% ")) {
        options = words(text);
      } else if (utf8 || line == "$" || line.starts_with("$ ")) {
        Step step{.command = line, .arguments = words(utf8 ? line.substr(4) : text)};
        step.arguments.insert(step.arguments.end(), options.begin(), options.end());
        if (utf8) step.locale = "C.UTF-8";
        list.push_back(std::move(step));
      } else if (line.starts_with("< ")) {
        list.back().input += text + "\n";
      } else if (line.starts_with("! ")) {
        list.back().expected.err += text + "\n";
      } else if (line.starts_with("= ")) {
        list.back().expected.status = std::stoi(text);
      } else {
        list.back().expected.out += line + "\n";
      }
    }
    return list;
  }

 private:
  const std::string store_ = testing::TempDir() + "tool_session_" + std::to_string(::getpid());
};

TEST_P(ToolSession, IsAsWrittenDown) {
  const std::vector<Step> session =
      steps(std::string(KZDDL_TEST_DATA "/../sessions/") + GetParam() + ".txt");
  EXPECT_FALSE(session.empty());
  for (const Step &step : session) {
    const ToolRun run = run_tool(step.arguments, step.input, step.locale);
    EXPECT_EQ(run.out, step.expected.out) << step.command;
    EXPECT_EQ(run.err, step.expected.err) << step.command;
    EXPECT_EQ(run.status, step.expected.status) << step.command;
  }
}

INSTANTIATE_TEST_SUITE_P(, ToolSession,
                         testing::Values("decode", "errors", "discovery", "disks", "paths",
                                         "failover", "hostile", "losses", "sick"),
                         [](const auto &info) { return std::string(info.param); });

TEST(ToolDecode, RawInput) {
  using namespace std::string_view_literals;
  EXPECT_EQ(run_tool({"decode", "vpd80", "-"}, "\0\x80\0\x07\x1B[3\\m\xFF "sv).out,
            "Unit Serial Number, VPD page 80h, 11 bytes\n"
            "  Serial number  \\x1B[3\\\\m\\xFF\n");
}

TEST(ToolErrors, NamesAndLibraries) {
  const ToolRun node = run_tool({"ready", "/dev/a\x1B\nb"});
  EXPECT_EQ(node.err, "kzddl: stat /dev/a\\x1B\\x0Ab: No such file or directory\n");
  EXPECT_EQ(node.status, 1);
  const ToolRun library =
      run_tool({"attribute", "/dev/sdc", "X", "--library", KZDDL_TOOL, "--sim"});
  EXPECT_EQ(library.err.find("kzddl: library " KZDDL_TOOL), 0u);
  EXPECT_EQ(library.status, 2);
}

TEST(ToolHelp, EveryPartHasExamplesWithinTheScreen) {
  for (const char *command :
       {"", "discover", "inquiry", "identify", "ready", "send", "decode", "database", "attribute",
        "capacity", "modes", "geometry", "read", "write", "reserved", "groups", "reservations",
        "copy-limits", "descriptor"}) {
    std::vector<std::string> arguments = {"--help"};
    if (*command != '\0') arguments.insert(arguments.begin(), command);
    const ToolRun run = run_tool(arguments);
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("\nExamples:\n  kzddl "), std::string::npos) << command;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);)
      EXPECT_LE(line.size(), 80u) << line;
  }
}

TEST(ToolSend, InquiryComesBackAsItWasCaptured) {
  std::filesystem::current_path(KZDDL_TEST_DATA);
  const auto run = [](std::vector<std::string> arguments) {
    arguments.push_back("--sim=../sessions/two-paths.json");
    return run_tool(arguments).out;
  };
  const std::string hexadecimal = run({"inquiry", "/dev/sda", "--page", "83", "--hex"});
  const std::string decoded = run({"inquiry", "/dev/sda", "--page", "0x83"});
  EXPECT_EQ(decoded, run_tool({"decode", "vpd83", "lio-path1/vpd-83.hex"}).out);
  EXPECT_EQ(decoded, run_tool({"decode", "vpd83", "-"}, hexadecimal).out);

  const std::string raw = run({"inquiry", "/dev/sda", "--raw"});
  EXPECT_EQ(raw.size(), 96u);
  EXPECT_EQ(run({"send", "/dev/sda", "--cdb", "12 00 00 00 60 00", "--in", "200", "--raw"}), raw)
      << "what did not move is not printed";
}

TEST(ToolState, ProcessesLoseNoRegistration) {
  const std::string store = testing::TempDir() + "tool_test_" + std::to_string(::getpid());
  std::filesystem::create_directory(store);
  const auto run = [&store](std::vector<std::string> arguments, const std::string &host) {
    arguments.insert(arguments.end(), {"--sim", "--sim-store=" + store, "--sim-host=" + host});
    return run_tool(arguments);
  };
  constexpr int hosts = 6;
  std::vector<std::future<ToolRun>> registrations;
  for (int i = 1; i <= hosts; ++i) {
    registrations.push_back(std::async(std::launch::async, [&run, number = std::to_string(i)] {
      return run({"reservations", "/dev/sda", "register", "--new-key", number}, number);
    }));
  }
  for (auto &registration : registrations)
    EXPECT_EQ(registration.get().status, 0);
  const auto seen = nlohmann::json::parse(run({"reservations", "/dev/sda", "--json"}, "1").out);
  EXPECT_EQ(seen["generation"], hosts);
  EXPECT_EQ(seen["keys"].size(), std::size_t{hosts});
  std::filesystem::remove_all(store);
}

}  // namespace
}  // namespace kzddl_test
