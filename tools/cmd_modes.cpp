// kzddl modes: the mode parameters of a device.
#include "tools/app.h"
#include "tools/mode_view.h"
#include "tools/options.h"
#include "tools/output.h"

namespace tool {
namespace {

struct Options {
  std::string node;
  std::optional<std::uint8_t> page;
  std::optional<std::uint8_t> subpage;
  ModeValues values = ModeValues::current;
  ByteFormat format = ByteFormat::decoded;
};

std::string values_words(ModeValues values) {
  static constexpr const char *words[] = {"current", "changeable", "default", "saved"};
  return fmt::format("{} mode parameters", words[static_cast<std::size_t>(values)]);
}

void run(const Context &context, const Options &options) {
  const ModeQuestion question{.page = options.page.value_or(ModeQuestion::all_pages),
                              .subpage = options.subpage.value_or(0),
                              .values = options.values};
  if (question.page > ModeQuestion::all_pages) {
    throw Error::usage("--page: expected a hexadecimal page code, 00 to 3f");
  }
  Device device(options.node);
  const std::vector<std::uint8_t> reply = read_modes(device, question);
  const std::string subject = device.name() + ", " + values_words(options.values);
  if (options.format != ByteFormat::decoded) {
    context.require_text("modes");
    print_bytes(reply, options.format, subject);
    return;
  }
  try {
    context.print(
        with_node(device.name(), mode_view(subject, reply, ModeForm::six, options.values)));
  } catch (const Error &error) {  // the device's mistake, not the user's
    throw Error("modes", device.name(), error.reason());
  }
}

void add_values_options(CLI::App &parser, ModeValues &values) {
  const struct {
    const char *name;
    const char *description;
    ModeValues values;
  } options[] = {
      {"--changeable", "Show which values can be changed", ModeValues::changeable},
      {"--default", "Show default values", ModeValues::defaults},
      {"--saved", "Show saved values", ModeValues::saved},
  };
  std::vector<CLI::Option *> others;
  for (const auto &option : options) {
    CLI::Option *added = parser.add_flag_callback(
        option.name, [&values, chosen = option.values] { values = chosen; }, option.description);
    added->option_text(" ");
    for (CLI::Option *other : others)
      added->excludes(other);
    others.push_back(added);
  }
}

}  // namespace

Subcommand add_modes(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("modes", "Show mode parameters");
  const auto options = std::make_shared<Options>();
  parser->add_option("NODE", options->node, "Device node")->required()->option_text(" ");
  add_byte_option(*parser, "--page", "Page code (all pages without it)", options->page);
  add_byte_option(*parser, "--subpage", "Subpage code", options->subpage);
  add_format_options(*parser, options->format);
  add_values_options(*parser, options->values);
  parser->footer(
      "Sends MODE SENSE (6). Pages 03, 04, 08, 0A and 0E are decoded, others dumped.\n"
      "What --hex or --raw prints can be saved and decoded later.\n\n"
      "Examples:\n"
      "  kzddl modes --route direct /dev/sda\n"
      "  kzddl --sim modes /dev/sda --page 8 --changeable\n"
      "  kzddl --sim modes /dev/sda --hex | kzddl decode modes -");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
