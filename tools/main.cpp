// kzddl: the command line tool over the library. Reads the command line, runs a subcommand,
// and turns errors into one line and an exit status.
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>

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

constexpr Command (*add_functions[])(CLI::App &, Context &) = {
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

void run(int argc, char **argv, Context &context) {
  CLI::App app("Discovers storage devices and talks to them.", "kzddl");
  app.formatter(std::make_shared<HelpFormatter>());
  app.fallthrough();
  app.require_subcommand(0, 1);
  app.footer(
      "Without a subcommand kzddl discovers. Each subcommand has a --help of its own.\n"
      "Exit status: 0, 1 when a device failed, 2 for a mistaken command line or file.\n\n"
      "Examples:\n"
      "  kzddl --sim discover\n"
      "  kzddl inquiry --route direct /dev/sda");
  GlobalOptions options;
  add_global_options(app, options, context);
  std::vector<Command> commands;
  for (const auto add : add_functions)
    commands.push_back(add(app, context));

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success &request) {  // --help or --version
    app.exit(request);
    return;
  } catch (const CLI::ParseError &error) {
    throw Error::usage(error.what());
  }
  if (options.simulate->count() != 0) {
    if (options.simulation.array == bare_flag) options.simulation.array.clear();
    enter_simulation(options.simulation, argv);
  }
  kzscsi_set_version(options.route == "direct" ? "32" : "35");
  if (app.get_subcommands().empty()) commands.front().run();  // discover: the main job
  for (const Command &command : commands) {
    if (command.parser->parsed()) command.run();
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
