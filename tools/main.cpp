// kzddl: the command line tool over the library. Reads the command line, runs a subcommand,
// and turns errors into one line and an exit status.
#include <fcntl.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <utility>

#include "kzddl/kzscsilib.h"
#include "tools/app.h"
#include "tools/simulation.h"

namespace tool {
namespace {

/// Help texts that end with where to find the global options.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() { column_width(24); }

  std::string make_footer(const CLI::App *app) const override {
    std::string footer = CLI::Formatter::make_footer(app);
    if (app->get_parent() != nullptr) {
      footer += "\nGlobal options (--route, --sim, --json): kzddl --help\n";
    }
    return footer;
  }
};

constexpr Subcommand (*add_functions[])(CLI::App &, Context &) = {
    add_discover, add_inquiry,   add_identify, add_ready,        add_send,        add_decode,
    add_database, add_attribute, add_groups,   add_reservations, add_copy_limits, add_descriptor,
    add_capacity, add_modes,     add_geometry, add_read,         add_write,       add_reserved,
};

/// What a flag without a value holds.
constexpr char bare_flag[] = "true";

struct GlobalOptions {
  std::string route = "indirect";
  Simulation simulation;
  CLI::Option *simulate = nullptr;
};

void add_global_options(CLI::App &app, GlobalOptions &options, Context &context) {
  app.add_option("--route", options.route,
                 "How commands reach a device: \"indirect\" (the default)\n"
                 "through the multipath driver, \"direct\" on the node")
      ->check(CLI::IsMember({"direct", "indirect"}))
      ->option_text("ROUTE");
  options.simulate = app.add_flag("--sim", options.simulation.array,
                                  "Run on the simulated host: its demonstration array, or\n"
                                  "the one that a JSON file describes")
                         ->option_text("[=FILE]");
  app.add_option("--sim-store", options.simulation.store,
                 "Directory where simulated units keep their state\n"
                 "from one run to the next")
      ->needs(options.simulate)
      ->check(CLI::ExistingDirectory)
      ->option_text("DIR");
  app.add_option("--sim-host", options.simulation.host,
                 "Name of the simulated host: another name, another\n"
                 "initiator (host-a)")
      ->needs(options.simulate)
      ->option_text("NAME");
  app.add_option("--sim-hostile", options.simulation.hostile,
                 "Make every simulated device hostile: it lies, in ways\n"
                 "that the seed (a whole number) decides")
      ->needs(options.simulate)
      ->option_text("SEED");
  app.add_flag("--json", context.json, "Print JSON");
  app.set_version_flag("--version", "kzddl " KZDDL_VERSION);
}

/// How many letters must change to make one word of the other.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

std::vector<std::string> names_of_subcommands(const CLI::App &app) {
  std::vector<std::string> names;
  for (const CLI::App *subcommand : app.get_subcommands([](const CLI::App *) { return true; }))
    names.push_back(subcommand->get_name());
  return names;
}

Error no_subcommand(const CLI::App &app, const std::string &word) {
  std::string hint;
  for (const std::string &name : names_of_subcommands(app))
    if (distance(word, name) <= 2) hint = fmt::format("; did you mean \"{}\"?", name);
  return Error::usage(fmt::format("no subcommand \"{}\"{} (kzddl --help lists them)", word, hint));
}

/// The mistake that arguments make which nobody takes.
Error not_expected(const CLI::App &app) {
  const std::vector<std::string> words = app.remaining(true);
  if (app.get_subcommands().empty() && !words.front().starts_with("-")) {
    return no_subcommand(app, words.front());
  }
  return Error::usage(fmt::format("not expected: {}", fmt::join(words, " ")));
}

/// "help X" asks what "X --help" does.
std::vector<std::string> with_help_as_option(const CLI::App &app,
                                             std::vector<std::string> arguments) {
  if (arguments.empty() || arguments.front() != "help") return arguments;
  arguments.erase(arguments.begin());
  const std::vector<std::string> names = names_of_subcommands(app);
  if (!arguments.empty() && std::ranges::find(names, arguments.front()) == names.end()) {
    throw no_subcommand(app, arguments.front());
  }
  arguments.emplace_back("--help");
  return arguments;
}

/// What the tool opens must not become its standard input or output: where those are closed,
/// something stands in that can neither be read nor written either.
void keep_standard_files() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) != -1) continue;
    [[maybe_unused]] const int null = open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

void run(int argc, char **argv, Context &context) {
  CLI::App app("Discovers storage devices and talks to them.", "kzddl");
  app.formatter(std::make_shared<HelpFormatter>());
  app.fallthrough();
  app.require_subcommand(0, 1);
  app.footer(
      "Without a subcommand kzddl discovers. kzddl help SUBCOMMAND tells more of each.\n"
      "Exit status: 0, 1 when a device failed, 2 for a mistaken command line or file.\n\n"
      "Examples:\n"
      "  kzddl --sim discover\n"
      "  kzddl inquiry --route direct /dev/sda");
  GlobalOptions options;
  add_global_options(app, options, context);
  std::vector<Subcommand> subcommands;
  for (const auto add : add_functions)
    subcommands.push_back(add(app, context));

  try {
    std::vector<std::string> arguments =
        with_help_as_option(app, {argv + std::min(argc, 1), argv + argc});
    std::ranges::reverse(arguments);  // which is how the parser takes them
    app.parse(arguments);
  } catch (const CLI::Success &request) {  // --help or --version
    app.exit(request);
    return;
  } catch (const CLI::ExtrasError &) {
    throw not_expected(app);
  } catch (const CLI::ParseError &error) {
    throw Error::usage(error.what());
  }
  if (options.simulate->count() != 0) {
    if (options.simulation.array == bare_flag) options.simulation.array.clear();
    enter_simulation(options.simulation, argv);
  }
  kzscsi_set_version(options.route == "direct" ? "32" : "35");
  if (app.get_subcommands().empty()) subcommands.front().run();  // discover: the main job
  for (const Subcommand &subcommand : subcommands) {
    if (subcommand.parser->parsed()) subcommand.run();
  }
}

/// Output that could not be written is a failure too.
void flush_output() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw Error::failure(fmt::format("write standard output: {}", std::strerror(errno)));
  }
}

}  // namespace
}  // namespace tool

int main(int argc, char **argv) {
  std::setlocale(LC_CTYPE, "");
  tool::keep_standard_files();
  tool::Context context;
  try {
    tool::run(argc, argv, context);
    tool::flush_output();
  } catch (const tool::Error &error) {
    context.report(error);
  } catch (const std::exception &error) {
    context.report(tool::Error::failure(error.what()));
  }
  return context.exit_status();
}
