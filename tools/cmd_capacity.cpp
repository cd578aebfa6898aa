// kzddl capacity: how large disks are.
#include "tools/app.h"
#include "tools/capacity.h"

namespace tool {
namespace {

View device_view(Device &device) {
  return with_node(device.name(), capacity_view(device.name(), read_capacity_reply(device)));
}

}  // namespace

Subcommand add_capacity(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("capacity", "Show how large disks are");
  const auto nodes = std::make_shared<std::vector<std::string>>();
  parser->add_option("NODE", *nodes, "Device nodes")->required()->option_text("...");
  parser->footer(
      "Sends READ CAPACITY (10), and (16) where 32 bits cannot count the blocks.\n"
      "Sizes are in powers of 1000, as on the label of a disk: 1 TB is 10^12 bytes.\n\n"
      "Examples:\n"
      "  kzddl capacity --route direct /dev/sda /dev/sdb\n"
      "  kzddl --sim capacity /dev/kz/rjox/disk1 --json");
  return {parser, [&context, nodes] { context.show_each(*nodes, device_view); }};
}

}  // namespace tool
