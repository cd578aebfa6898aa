// kzddl reserved: does another host hold a device?
#include "tools/app.h"
#include "tools/mode_sense.h"

namespace tool {

Subcommand add_reserved(CLI::App &app, Context &context) {
  CLI::App *parser =
      app.add_subcommand("reserved", "Ask whether another host has devices for itself");
  const auto nodes = std::make_shared<std::vector<std::string>>();
  parser->add_option("NODE", *nodes, "Device nodes")->required()->option_text("...");
  parser->footer(
      "Sends MODE SENSE (6), which a device refuses while another host has it for\n"
      "itself; a reservation that lets others read may not show. Exit status 1 when a\n"
      "device is reserved by another host.\n\n"
      "Examples:\n"
      "  kzddl reserved --route direct /dev/sda\n"
      "  kzddl --sim reserved /dev/sda /dev/sdb --json");
  return {parser, [&context, nodes] {
            context.show_lines(*nodes, [&](Device &device) -> View {
              const bool reserved = is_reserved_elsewhere(device);
              if (reserved) context.fail();
              return {reserved ? "reserved by another host" : "free",
                      {{"node", device.name()}, {"reserved", reserved}}};
            });
          }};
}

}  // namespace tool
