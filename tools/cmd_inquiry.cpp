// kzddl inquiry: standard inquiry data, or a page of vital product data.
#include "tools/app.h"
#include "tools/inquiry.h"
#include "tools/inquiry_view.h"
#include "tools/options.h"
#include "tools/output.h"
#include "tools/vpd.h"

namespace tool {
namespace {

struct Options {
  std::string node;
  std::optional<std::uint8_t> page;
  ByteFormat format = ByteFormat::decoded;
};

std::string subject(const std::optional<std::uint8_t> &page) {
  return page ? fmt::format("VPD {:02X}", *page) : "standard INQUIRY";
}

void run(const Context &context, const Options &options) {
  Device device(options.node);
  const std::vector<std::uint8_t> reply = read_inquiry(device, options.page);
  if (options.format != ByteFormat::decoded) {
    context.require_text("inquiry");
    print_bytes(reply, options.format, subject(options.page) + ", " + device.name());
    return;
  }
  if (options.page) require_page(device, reply, *options.page);
  context.print(
      with_node(device.name(), options.page ? vpd_view(reply) : standard_inquiry_view(reply)));
}

}  // namespace

Subcommand add_inquiry(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("inquiry", "Show inquiry data or a page of them");
  const auto options = std::make_shared<Options>();
  parser->add_option("NODE", options->node, "Device node")->required()->option_text(" ");
  add_byte_option(*parser, "--page", "Page of vital product data (standard data without it)",
                  options->page);
  add_format_options(*parser, options->format);
  parser->footer(
      "Pages 00, 80, 83, B0, B1 and B2 are decoded, others dumped. What --hex or --raw\n"
      "prints can be saved and decoded later. In page 83 a \"*\" marks the designator\n"
      "that names the logical unit.\n\n"
      "Examples:\n"
      "  kzddl inquiry --route direct /dev/sda\n"
      "  kzddl --sim inquiry /dev/sda --page 83\n"
      "  kzddl --sim inquiry /dev/sda --page 83 --hex | kzddl decode vpd83 -");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
