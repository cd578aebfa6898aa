// kzddl identify: which logical unit and which cabinet does a node lead to?
#include "kzddl/kzmisc_identity.h"
#include "tools/app.h"
#include "tools/identity.h"
#include "tools/vpd.h"

namespace tool {
namespace {

void show_cabinet(ViewBuilder &view, const Identity &identity) {
  const std::string text = escaped(identity.cabinet);
  const std::string words = identity.cabinet_error
                                ? "not known: " + identity.cabinet_error->reason()
                            : text.empty() ? "no serial number"
                                           : text;
  view.field("Cabinet", "cabinet_serial", words, text.empty() ? Json() : Json(text));
}

View identity_view(Context &context, Device &device) {
  const Identity identity = identify(device);
  ViewBuilder view(device.name());
  view.value("node", device.name());
  view.field("Device number", "device_number", device.number().text());
  view.field("Identifier", "identifier", escaped(identity.identifier));
  view.field("Type", "identifier_type", identifier_type_words(identity.kind));
  view.value("identifier_kind", identity.kind);
  if (names_unit(identity)) {
    view.field("Association", "association", association_words(identity.kind >> 4 & 0x03));
  } else {
    view.value("association", nullptr);
  }
  show_cabinet(view, identity);
  const UnitName by_library = name_by_library(device, identity);
  const std::string library_identifier = escaped(by_library.identifier);
  view.field("get_lun_id", "library_identifier",
             fmt::format("{} {}", identifier_type_words(by_library.kind), library_identifier),
             library_identifier);
  view.value("library_identifier_kind", by_library.kind);
  if (identity.cabinet_error) context.report(*identity.cabinet_error);
  return view.build();
}

}  // namespace

Subcommand add_identify(CLI::App &app, Context &context) {
  CLI::App *parser =
      app.add_subcommand("identify", "Show the identifiers of logical units and cabinets");
  const auto nodes = std::make_shared<std::vector<std::string>>();
  parser->add_option("NODE", *nodes, "Device nodes")->required()->option_text("...");
  parser->footer(
      "The identifier is the best designator that the Device Identification page has of\n"
      "the logical unit (NAA before EUI-64, UUID, SCSI name, T10 vendor ID, vendor\n"
      "specific), or the node's name where there is none. Below it stands what the\n"
      "library's get_lun_id makes of the page: it reads 255 bytes of it, and takes\n"
      "designators of ports too.\n\n"
      "Examples:\n"
      "  kzddl identify --route direct /dev/sda\n"
      "  kzddl --sim identify /dev/sda /dev/sdb --json");
  return {parser, [&context, nodes] {
            context.show_each(
                *nodes, [&context](Device &device) { return identity_view(context, device); });
          }};
}

}  // namespace tool
