// kzddl identify: which logical unit and which cabinet does a node lead to?
#include "kzddl/kzmisc_identity.h"
#include "tools/app.h"
#include "tools/identity.h"
#include "tools/vpd.h"

namespace tool {
namespace {

View identity_view(Device &device) {
  const Identity identity = identify(device);
  const bool is_name = identity.kind == KZDDL_NO_DESIGNATOR;
  ViewBuilder view(device.name());
  view.value("node", device.name());
  view.field("Device number", "device_number", device.number().text());
  view.field("Identifier", "identifier", escaped(identity.identifier));
  view.field("Type", "identifier_type", identifier_type_words(identity.kind));
  view.value("identifier_kind", identity.kind);
  if (is_name) {
    view.value("association", nullptr);
  } else {
    view.field("Association", "association", association_words(identity.kind >> 4 & 0x03));
  }
  view.field("Cabinet", "cabinet_serial",
             identity.cabinet.empty() ? "no serial number" : escaped(identity.cabinet),
             identity.cabinet.empty() ? Json() : Json(escaped(identity.cabinet)));
  return view.build();
}

}  // namespace

Subcommand add_identify(CLI::App &app, Context &context) {
  CLI::App *parser =
      app.add_subcommand("identify", "Show the identifiers of logical units and cabinets");
  const auto nodes = std::make_shared<std::vector<std::string>>();
  parser->add_option("NODE", *nodes, "Device nodes")->required()->option_text("...");
  parser->footer(
      "The identifier is the best designator of the Device Identification page (NAA\n"
      "before EUI-64, T10 vendor ID, vendor specific), or the node's name where a\n"
      "device has none.\n\n"
      "Examples:\n"
      "  kzddl identify --route direct /dev/sda\n"
      "  kzddl --sim identify /dev/sda /dev/sdb --json");
  return {parser, [&context, nodes] { context.show_each(*nodes, identity_view); }};
}

}  // namespace tool
