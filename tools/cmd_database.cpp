// kzddl database: what a discovery stores, property by property.
#include <algorithm>

#include "kzddl/ddlproperty.h"
#include "tools/app.h"
#include "tools/discovery.h"
#include "tools/property.h"

namespace tool {
namespace {

struct StoredValue {
  Value value;
  std::vector<Link> links;
};

struct StoredProperty {
  std::string name;
  std::vector<StoredValue> values;
};

/// The properties that are linked with disks, with each other too: discovery stores no others.
std::vector<StoredProperty> stored_properties() {
  std::vector<std::string> names = {property::disk};
  std::vector<StoredProperty> properties;
  for (std::size_t i = 0; i < names.size(); ++i) {
    StoredProperty stored{names[i], {}};
    for (const Value &value : values_of(stored.name)) {
      stored.values.push_back({value, links_of(stored.name, value)});
      for (const Link &link : stored.values.back().links) {
        if (std::find(names.begin(), names.end(), link.property) == names.end()) {
          names.push_back(link.property);
        }
      }
    }
    if (!stored.values.empty()) properties.push_back(std::move(stored));
  }
  return properties;
}

std::string property_text(const StoredProperty &stored) {
  std::string text =
      fmt::format("{}, {}\n", escaped(stored.name), counted(stored.values.size(), "value"));
  for (const StoredValue &value : stored.values) {
    text += paragraph(Prefix("  "), value.value.shown());
    std::vector<std::pair<std::string, std::string>> lines;
    for (const Link &link : value.links)
      lines.emplace_back(escaped(link.property), link.value.shown());
    text += labelled(lines, "    ");
  }
  return text;
}

Json property_json(const StoredProperty &stored) {
  Json values = Json::array();
  for (const StoredValue &stored_value : stored.values) {
    Json value = stored_value.value.json();
    value["associations"] = Json::array();
    for (const Link &link : stored_value.links) {
      Json association = {{"property", escaped(link.property)}};
      association.update(link.value.json());
      value["associations"].push_back(std::move(association));
    }
    values.push_back(std::move(value));
  }
  return {{"property", escaped(stored.name)}, {"values", std::move(values)}};
}

View database_view() {
  View view{{}, Json::array()};
  for (const StoredProperty &stored : stored_properties()) {
    if (!view.text.empty()) view.text += "\n";
    view.text += property_text(stored);
    view.json.push_back(property_json(stored));
  }
  if (view.text.empty()) view.text = "The database is empty: no device answered.\n";
  return view;
}

void run(Context &context, std::vector<std::string> nodes, bool log) {
  if (nodes.empty()) nodes = find_nodes();
  const Discovery found = discover(nodes);
  for (const Unanswered &node : found.unanswered)
    context.report(node.error);
  if (!found.is_sound()) context.fail();
  if (log) {
    print_property_list();
  } else {
    context.print(database_view());
  }
}

}  // namespace

Subcommand add_database(CLI::App &app, Context &context) {
  CLI::App *parser =
      app.add_subcommand("database", "Show the property database that a discovery fills");
  const auto nodes = std::make_shared<std::vector<std::string>>();
  const auto log = std::make_shared<bool>(false);
  parser->add_option("NODE", *nodes, "Device nodes; without them, all that the host has")
      ->option_text("...");
  parser->add_flag("--log", *log,
                   "Have the library print its list instead, to standard\n"
                   "error or to the file that KZ_DEBUG_FILE names");
  parser->footer(
      "Discovers as \"kzddl discover\" does, then lists each property, its values, and\n"
      "the values of other properties that each is associated with.\n\n"
      "Examples:\n"
      "  kzddl --sim database\n"
      "  kzddl database --route direct /dev/sda --json\n"
      "  KZ_DEBUG_FILE=list kzddl --sim database --log");
  return {parser, [&context, nodes, log] { run(context, *nodes, *log); }};
}

}  // namespace tool
