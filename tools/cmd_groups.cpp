// kzddl groups: the target port groups of a logical unit, and their access states.
#include <algorithm>
#include <iterator>

#include "tools/app.h"
#include "tools/inquiry.h"
#include "tools/options.h"
#include "tools/port_groups.h"
#include "tools/vpd.h"

namespace tool {
namespace {

struct Options {
  std::string node;
  std::vector<RequestedState> states;
};

/// "2=standby".
RequestedState parse_request(std::string_view text) {
  static constexpr std::string_view words[] = {"optimized", "nonoptimized", "standby",
                                               "unavailable"};
  const std::size_t equals = std::min(text.find('='), text.size());
  const auto group = parse_whole<std::uint16_t>(text.substr(0, equals));
  const auto *word = std::ranges::find(words, text.substr(std::min(equals + 1, text.size())));
  if (!group || word == std::end(words)) {
    throw CLI::ValidationError("--set",
                               "expected GROUP=STATE, a group's number and optimized, "
                               "nonoptimized, standby or unavailable");
  }
  return {.group = *group, .state = static_cast<std::uint8_t>(word - std::begin(words))};
}

void add_request(std::vector<RequestedState> &states, const std::string &text) {
  const RequestedState request = parse_request(text);
  if (std::ranges::find(states, request.group, &RequestedState::group) != states.end()) {
    throw CLI::ValidationError("--set", fmt::format("group {} is set twice", request.group));
  }
  states.push_back(request);
}

/// Without it the groups are known all the same.
OwnPort own_port_of(Context &context, Device &device) {
  try {
    const auto page = VpdPages(device).read(vpd::device_identification);
    return page ? own_port(*page) : OwnPort();
  } catch (const Error &error) {
    context.report(error);
    return {};
  }
}

void run(Context &context, const Options &options) {
  Device device(options.node);
  if (!options.states.empty()) set_port_groups(device, options.states);
  const PortGroups reply(read_port_groups(device));
  ViewBuilder view(
      fmt::format("{}: {}", device.name(), counted(reply.groups.size(), "target port group")));
  view.value("node", device.name());
  show_port_groups(view, reply, own_port_of(context, device));
  context.print(view.build());
}

}  // namespace

Subcommand add_groups(CLI::App &app, Context &context) {
  CLI::App *parser =
      app.add_subcommand("groups", "Show or set the access states of target port groups");
  const auto options = std::make_shared<Options>();
  parser->add_option("NODE", options->node, "Device node")->required()->option_text(" ");
  parser
      ->add_option_function<std::vector<std::string>>(
          "--set",
          [options](const std::vector<std::string> &texts) {
            for (const std::string &text : texts)
              add_request(options->states, text);
          },
          "Set a group's state: optimized, nonoptimized, standby\n"
          "or unavailable; more than once for more groups, which\n"
          "go in one command")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text("GROUP=STATE");
  parser->footer(
      "Groups that --set does not name keep their states, as far as the device can\n"
      "do that. Shows the states afterwards.\n\n"
      "Examples:\n"
      "  kzddl --sim groups /dev/sda\n"
      "  kzddl --sim groups /dev/sda --set 1=standby --set 2=optimized");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
