// The frame of the tool: global options, and what a subcommand is made of.
//
// A subcommand is one file, cmd_NAME.cpp. Its add_NAME function (listed in main.cpp) declares
// its options and returns what runs once the command line has been read.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "tools/device.h"
#include "tools/error.h"
#include "tools/view.h"

namespace tool {

/// Global options, and how the run is going.
class Context {
 public:
  bool json = false;

  /// Writes the error's line and remembers its exit status.
  void report(const Error &error);

  /// A device is not what was asked for, though nothing went wrong.
  void fail() { exit_status_ = std::max<int>(exit_status_, exit_device_failed); }

  /// Writes `view` as text or as JSON, as the options say.
  void print(const View &view) const;

  /// Throws Error (of usage) where JSON is asked for: bytes as they are have no such form.
  void require_text(std::string_view operation) const;

  /// Shows one device after the other. A failure is reported, and the next has its turn. In
  /// JSON it is one list, in which a failed device has a node and an error.
  void show_each(const std::vector<std::string> &nodes, const std::function<View(Device &)> &view);

  /// The same, each view one line of text behind its node.
  void show_lines(const std::vector<std::string> &nodes, const std::function<View(Device &)> &view);

  int exit_status() const { return exit_status_; }

 private:
  Json json_or_error(const std::string &node, const std::function<View(Device &)> &view);

  int exit_status_ = exit_success;
};

struct Subcommand {
  CLI::App *parser;
  std::function<void()> run;
};

Subcommand add_attribute(CLI::App &app, Context &context);
Subcommand add_capacity(CLI::App &app, Context &context);
Subcommand add_database(CLI::App &app, Context &context);
Subcommand add_decode(CLI::App &app, Context &context);
Subcommand add_descriptor(CLI::App &app, Context &context);
Subcommand add_copy_limits(CLI::App &app, Context &context);
Subcommand add_discover(CLI::App &app, Context &context);
Subcommand add_geometry(CLI::App &app, Context &context);
Subcommand add_groups(CLI::App &app, Context &context);
Subcommand add_identify(CLI::App &app, Context &context);
Subcommand add_inquiry(CLI::App &app, Context &context);
Subcommand add_modes(CLI::App &app, Context &context);
Subcommand add_read(CLI::App &app, Context &context);
Subcommand add_ready(CLI::App &app, Context &context);
Subcommand add_reservations(CLI::App &app, Context &context);
Subcommand add_reserved(CLI::App &app, Context &context);
Subcommand add_send(CLI::App &app, Context &context);
Subcommand add_write(CLI::App &app, Context &context);

}  // namespace tool
