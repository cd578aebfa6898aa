// kzddl ready: can devices accept commands?
#include "tools/app.h"
#include "tools/problem.h"
#include "tools/readiness.h"

namespace tool {
namespace {

View readiness_view(const Device &device, const Readiness &readiness) {
  return {readiness.words(),
          {{"node", device.name()},
           {"ready", readiness.ready},
           {"reason", readiness.ready ? Json() : Json(readiness.reason)},
           {"sense", sense_json(readiness.sense)}}};
}

void run(Context &context, const std::vector<std::string> &nodes) {
  context.show_lines(nodes, [&](Device &device) {
    const Readiness readiness = test_unit_ready(device);
    if (!readiness.ready) context.fail();
    return readiness_view(device, readiness);
  });
}

}  // namespace

Subcommand add_ready(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("ready", "Ask devices whether they can accept commands");
  const auto nodes = std::make_shared<std::vector<std::string>>();
  parser->add_option("NODE", *nodes, "Device nodes")->required()->option_text("...");
  parser->footer(
      "Sends TEST UNIT READY, again if the first one meets a unit attention.\n"
      "Exit status 1 when a device is not ready.\n\n"
      "Examples:\n"
      "  kzddl ready --route direct /dev/sda /dev/sdb\n"
      "  kzddl --sim ready /dev/kz/rjox/disk0");
  return {parser, [&context, nodes] { run(context, *nodes); }};
}

}  // namespace tool
