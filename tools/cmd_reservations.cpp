// kzddl reservations: the persistent reservations of a logical unit, and changes to them.
#include <algorithm>
#include <iterator>

#include "tools/app.h"
#include "tools/options.h"
#include "tools/reservations.h"

namespace tool {
namespace {

enum class Use { none, optional, required };

struct Action {
  std::string_view name;
  std::uint8_t code;
  Use key;
  Use service_key;
  Use type;
};

constexpr Action actions[] = {
    {"register", service_action::register_key, Use::optional, Use::required, Use::none},
    {"reserve", service_action::reserve, Use::required, Use::none, Use::required},
    {"release", service_action::release, Use::required, Use::none, Use::required},
    {"clear", service_action::clear, Use::required, Use::none, Use::none},
    {"preempt", service_action::preempt, Use::required, Use::required, Use::required},
};

struct Options {
  std::string node;
  std::string action;
  std::optional<std::uint64_t> key;
  std::optional<std::uint64_t> service_key;
  std::optional<std::uint8_t> type;
  bool ignore = false;
};

std::uint8_t parse_type(const std::string &word) {
  const std::optional<std::uint8_t> type = reservation_type(word);
  if (!type) throw CLI::ValidationError("--type", "expected " + reservation_type_list());
  return *type;
}

void require(std::string_view action, std::string_view option, Use use, bool given) {
  if (use == Use::required && !given) {
    throw Error::usage(fmt::format("reservations: {} needs {}", action, option));
  }
  if (use == Use::none && given) {
    throw Error::usage(fmt::format("reservations: {} takes no {}", action, option));
  }
}

/// What the options ask for; nothing when they only look.
std::optional<ReservationChange> change_in(const Options &options) {
  constexpr Action look{"without an action it", 0, Use::none, Use::none, Use::none};
  const auto *found = std::ranges::find(actions, options.action, &Action::name);
  const Action &action = found != std::end(actions) ? *found : look;
  const bool registers = &action == actions;
  require(action.name, "--key", options.ignore ? Use::none : action.key, options.key.has_value());
  require(action.name, "--new-key", action.service_key, options.service_key.has_value());
  require(action.name, "--type", action.type, options.type.has_value());
  require(action.name, "--ignore", registers ? Use::optional : Use::none, options.ignore);
  if (&action == &look) return std::nullopt;
  return ReservationChange{
      .action = options.ignore ? service_action::register_and_ignore_existing_key : action.code,
      .key = options.key.value_or(0),
      .service_key = options.service_key.value_or(0),
      .type = options.type.value_or(0)};
}

void run(const Context &context, const Options &options) {
  const std::optional<ReservationChange> change = change_in(options);
  Device device(options.node);
  if (change) change_reservations(device, *change);
  context.print(reservations_view(device, read_reservations(device)));
}

}  // namespace

Subcommand add_reservations(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("reservations", "Show or change persistent reservations");
  const auto options = std::make_shared<Options>();
  parser->add_option("NODE", options->node, "Device node")->required()->option_text(" ");
  parser
      ->add_option("ACTION", options->action,
                   "register, reserve, release, clear or preempt; without\n"
                   "it nothing is changed")
      ->check(CLI::IsMember(names_of(actions)))
      ->option_text(" ");
  add_key_option(*parser, "--key", "The key that this host is registered with", options->key);
  add_key_option(*parser, "--new-key,--service-key",
                 "The key to register (0: no longer), or to preempt", options->service_key);
  parser
      ->add_option_function<std::string>(
          "--type", [options](const std::string &word) { options->type = parse_type(word); },
          "The reservation's type, see below")
      ->option_text("TYPE");
  parser->add_flag("--ignore", options->ignore, "Register whatever key was registered before");
  parser->footer(
      "Types: write-exclusive, exclusive-access, we-registrants-only,\n"
      "ea-registrants-only, we-all-registrants, ea-all-registrants.\n"
      "Shows the reservations afterwards. A change that the device does not answer may\n"
      "or may not have been carried out.\n\n"
      "Examples:\n"
      "  kzddl --sim reservations /dev/sda\n"
      "  kzddl --sim reservations /dev/sda register --new-key abc1\n"
      "  kzddl reservations /dev/sda reserve --key abc1 --type write-exclusive\n"
      "  kzddl reservations /dev/sda preempt --key abc2 --new-key abc1 \\\n"
      "    --type we-registrants-only");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
