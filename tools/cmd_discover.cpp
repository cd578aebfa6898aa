// kzddl discover: the logical units of the host and the paths that lead to them, as a tree.
#include <algorithm>

#include "tools/app.h"
#include "tools/discovery.h"
#include "tools/vpd.h"

namespace tool {
namespace {

// --- text ---

Columns::Row path_row(std::string_view kind, const Path &path) {
  return {std::string(kind), path.node, path.number.text(), path.readiness.words()};
}

/// Multipath nodes before the paths behind them.
std::vector<Columns::Row> path_rows(const LogicalUnit &unit) {
  std::vector<Columns::Row> rows;
  for (const Path &path : unit.multipath_nodes)
    rows.push_back(path_row("multipath", path));
  for (const Path &path : unit.paths)
    rows.push_back(path_row("path", path));
  return rows;
}

std::string maker_text(const LogicalUnit &unit) {
  std::string text;
  for (const std::string *part : {&unit.vendor, &unit.product}) {
    if (!part->empty()) text += fmt::format("{}{}", text.empty() ? "" : " ", *part);
  }
  if (text.empty()) text = unit.device_type;
  if (!unit.revision.empty()) text += fmt::format(" rev {}", unit.revision);
  return text + (unit.cabinet.empty() ? ", no cabinet serial" : ", cabinet " + unit.cabinet);
}

std::string unit_text(const LogicalUnit &unit, bool is_last, const Columns &columns) {
  const TreeMarks &marks = tree_marks();
  const std::string stem(is_last ? marks.blank : marks.bar);
  std::string text =
      paragraph({std::string(is_last ? marks.last : marks.branch), stem},
                fmt::format("{} {}", identifier_type_words(unit.identifier_kind), unit.identifier));
  const std::vector<Columns::Row> rows = path_rows(unit);
  text += paragraph(Prefix(stem), maker_text(unit));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const bool ends = i + 1 == rows.size();
    text += columns.line({stem + std::string(ends ? marks.last : marks.branch),
                          stem + std::string(ends ? marks.blank : marks.bar)},
                         rows[i]);
  }
  return text + (is_last ? "" : paragraph(Prefix(stem), ""));
}

std::string summary(const Discovery &found) {
  std::size_t paths = 0;
  std::size_t multipath = 0;
  std::size_t not_ready = 0;
  const auto is_not_ready = [](const Path &path) { return !path.readiness.ready; };
  for (const LogicalUnit &unit : found.units) {
    paths += unit.paths.size();
    multipath += unit.multipath_nodes.size();
    not_ready +=
        static_cast<std::size_t>(std::count_if(unit.paths.begin(), unit.paths.end(), is_not_ready));
  }
  std::string text = fmt::format("{}, {}, {}", counted(found.units.size(), "logical unit"),
                                 counted(paths, "path"), counted(multipath, "multipath node"));
  if (not_ready != 0) text += fmt::format("; {} not ready", counted(not_ready, "path"));
  if (!found.unanswered.empty()) {
    text += fmt::format("; {} did not answer", counted(found.unanswered.size(), "node"));
  }
  return text;
}

std::string tree(const Discovery &found) {
  Columns columns;
  for (const LogicalUnit &unit : found.units) {
    for (const Columns::Row &row : path_rows(unit))
      columns.measure(row);
  }
  std::string text = summary(found) + "\n";
  for (const LogicalUnit &unit : found.units) {
    text += unit_text(unit, &unit == &found.units.back(), columns);
  }
  return text;
}

// --- JSON ---

Json paths_json(const std::vector<Path> &paths) {
  Json list = Json::array();
  for (const Path &path : paths) {
    list.push_back({{"node", path.node},
                    {"major", path.number.major},
                    {"minor", path.number.minor},
                    {"ready", path.readiness.ready},
                    {"reason", path.readiness.ready ? Json() : Json(path.readiness.reason)}});
  }
  return list;
}

Json unit_json(const LogicalUnit &unit) {
  return {{"identifier", unit.identifier},
          {"identifier_type", identifier_type_words(unit.identifier_kind)},
          {"identifier_kind", unit.identifier_kind},
          {"device_type", unit.device_type},
          {"vendor", unit.vendor},
          {"product", unit.product},
          {"revision", unit.revision},
          {"cabinet_serial", unit.cabinet.empty() ? Json() : Json(unit.cabinet)},
          {"multipath_nodes", paths_json(unit.multipath_nodes)},
          {"paths", paths_json(unit.paths)}};
}

Json discovery_json(const Discovery &found) {
  Json units = Json::array();
  for (const LogicalUnit &unit : found.units)
    units.push_back(unit_json(unit));
  Json unanswered = Json::array();
  for (const Unanswered &node : found.unanswered) {
    unanswered.push_back({{"node", node.node}, {"reason", node.error.reason()}});
  }
  return {{"logical_units", std::move(units)}, {"unanswered_nodes", std::move(unanswered)}};
}

void run(Context &context, std::vector<std::string> nodes) {
  if (nodes.empty()) nodes = find_nodes();
  const Discovery found = discover(nodes);
  for (const Unanswered &node : found.unanswered)
    context.report(node.error);
  const std::string text =
      nodes.empty() ? "No devices: no sd disks in /proc/partitions, no multipath nodes in "
                      "/dev/kz/rjox.\n"
                    : tree(found);
  context.print({text, discovery_json(found)});
}

}  // namespace

Command add_discover(CLI::App &app, Context &context) {
  CLI::App *parser =
      app.add_subcommand("discover", "Find the logical units and the paths that lead to them");
  const auto nodes = std::make_shared<std::vector<std::string>>();
  parser->add_option("NODE", *nodes, "Device nodes; without them, all that the host has")
      ->option_text("...");
  parser->footer(
      "Asks each node who it is and whether it is ready, and puts nodes that lead to\n"
      "the same logical unit together. Without nodes it asks the sd disks that\n"
      "/proc/partitions lists and the multipath nodes in /dev/kz/rjox.\n\n"
      "Examples:\n"
      "  kzddl --sim discover\n"
      "  kzddl discover --route direct /dev/sda /dev/sdb\n"
      "  kzddl --sim=array.json discover --json");
  return {parser, [&context, nodes] { run(context, *nodes); }};
}

}  // namespace tool
