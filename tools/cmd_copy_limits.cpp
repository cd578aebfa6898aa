// kzddl copy-limits: what third-party copy devices support.
#include "tools/app.h"
#include "tools/copy_limits.h"

namespace tool {
namespace {

View device_view(Device &device) {
  ViewBuilder view(device.name());
  view.value("node", device.name());
  show_copy_limits(view, read_copy_limits(device));
  return view.build();
}

}  // namespace

Subcommand add_copy_limits(CLI::App &app, Context &context) {
  CLI::App *parser =
      app.add_subcommand("copy-limits", "Show what third-party copy devices support");
  const auto nodes = std::make_shared<std::vector<std::string>>();
  parser->add_option("NODE", *nodes, "Device nodes")->required()->option_text("...");
  parser->footer(
      "Sends RECEIVE COPY RESULTS, and asks for mode page 0Eh where the device refuses\n"
      "that; held data and stream transfer are then unknown and shown as none.\n\n"
      "Examples:\n"
      "  kzddl copy-limits --route direct /dev/sda\n"
      "  kzddl --sim copy-limits /dev/sda /dev/sdb --json");
  return {parser, [&context, nodes] { context.show_each(*nodes, device_view); }};
}

}  // namespace tool
