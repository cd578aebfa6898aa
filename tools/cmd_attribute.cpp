// kzddl attribute: one attribute of a disk, out of the property database, which fetches a
// dynamic one from whoever is registered for it.
#include <cstring>
#include <optional>

#include "kzddl/kzmisc_geometry.h"
#include "tools/app.h"
#include "tools/asl.h"
#include "tools/discovery.h"
#include "tools/geometry.h"
#include "tools/property.h"

namespace tool {
namespace {

struct Options {
  std::string disk;
  std::string attribute;
  std::string asl_file;
};

/// What is known of a disk depends on the nodes that lead to the same unit. Throws what kept the
/// disk from answering.
void discover_around(const std::string &disk) {
  for (const Unanswered &node : discover_with({disk}).unanswered) {
    if (node.node == escaped(disk)) throw node.error;
  }
}

std::optional<disk_geom> geometry_in(const std::string &attribute, const Value &value) {
  disk_geom geometry;
  if (attribute != KZDDL_PROP_GEOMETRY || value.type() != KZDDL_GEOMETRY_TYPE ||
      value.payload().size() != sizeof geometry) {
    return std::nullopt;
  }
  std::memcpy(&geometry, value.payload().data(), sizeof geometry);
  return geometry;
}

View value_view(const std::string &attribute, const Value &value) {
  View view{value.shown() + "\n", value.json()};
  if (const std::optional<disk_geom> geometry = geometry_in(attribute, value)) {
    const View decoded = geometry_view("Geometry", *geometry);
    view.text = decoded.text;
    view.json["geometry"] = decoded.json;
  }
  return view;
}

void run(const Context &context, const Options &options) {
  discover_around(options.disk);
  register_geometry();
  if (!options.asl_file.empty()) register_library(options.asl_file, options.attribute);
  const std::vector<Value> values = linked(property::disk, Value(options.disk), options.attribute);
  if (values.empty()) {
    throw Error("attribute", escaped(options.disk),
                fmt::format("no attribute {}", escaped(options.attribute)));
  }
  View all{{}, {{"disk", escaped(options.disk)}, {"attribute", escaped(options.attribute)}}};
  for (const Value &value : values) {
    const View view = value_view(options.attribute, value);
    all.text += view.text;
    all.json["values"].push_back(view.json);
  }
  context.print(all);
}

}  // namespace

Subcommand add_attribute(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("attribute", "Show an attribute of a disk");
  const auto options = std::make_shared<Options>();
  parser->add_option("DISK", options->disk, "Device node")->required()->option_text(" ");
  parser->add_option("NAME", options->attribute, "Name of the attribute")
      ->required()
      ->option_text(" ");
  parser
      ->add_option("--library", options->asl_file,
                   "Array support library that fetches attributes which\n"
                   "discovery does not store")
      ->option_text("FILE");
  parser->footer(
      "Discovers the host's devices and looks the attribute up in the property\n"
      "database: one that discovery stores (\"kzddl database\" lists them),\n"
      "DISK_GEOMETRY for a disk with a multipath node, or one that the array support\n"
      "library knows. Text is shown as text, other values as hexadecimal digits.\n\n"
      "Examples:\n"
      "  kzddl --sim attribute /dev/sda VENDOR\n"
      "  kzddl --sim attribute /dev/sda DISK_GEOMETRY\n"
      "  kzddl --sim attribute /dev/sda POWER_STATE --library kzexample_asl.so");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
