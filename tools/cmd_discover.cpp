// kzddl discover: the logical units of the host and the paths that lead to them, as a tree.
#include <algorithm>

#include "tools/app.h"
#include "tools/capacity.h"
#include "tools/command.h"
#include "tools/discovery.h"
#include "tools/discovery_dot.h"
#include "tools/vpd.h"

namespace tool {
namespace {

// --- text ---

Columns::Row path_row(const Path &path) {
  return {path.node, path.address, path.number.text(), path.readiness.words()};
}

/// What hangs below a unit: a node, or a port group and the paths through it.
struct Branch {
  std::string group;
  std::vector<Columns::Row> rows;
};

/// Multipath nodes before the paths behind them.
std::vector<Branch> branches(const LogicalUnit &unit) {
  std::vector<Branch> list;
  const auto add_node = [&list](std::string_view kind, const Path &path) {
    Columns::Row row = path_row(path);
    row.insert(row.begin(), std::string(kind));
    list.push_back({{}, {std::move(row)}});
  };
  for (const Path &path : unit.multipath_nodes)
    add_node("multipath", path);
  for (const Path &path : unit.paths) {
    if (!path.access) {
      add_node("path", path);
    } else {
      const std::string group = path.access->words();
      if (list.empty() || list.back().group != group) list.push_back({group, {}});
      list.back().rows.push_back(path_row(path));
    }
  }
  return list;
}

/// The columns of nodes right below a unit, and of paths below a port group.
struct TreeColumns {
  Columns nodes;
  Columns grouped;

  Columns &of(const Branch &branch) { return branch.group.empty() ? nodes : grouped; }
  const Columns &of(const Branch &branch) const { return branch.group.empty() ? nodes : grouped; }
};

/// One of several things below `stem`: what its first line and the further ones begin with.
Prefix tree_prefix(const std::string &stem, bool is_last) {
  const TreeMarks &marks = tree_marks();
  return {stem + std::string(is_last ? marks.last : marks.branch),
          stem + std::string(is_last ? marks.blank : marks.bar)};
}

std::string rows_text(const Branch &branch, const std::string &stem, bool is_last,
                      const TreeColumns &columns) {
  std::string text;
  for (const Columns::Row &row : branch.rows) {
    const bool ends = is_last && &row == &branch.rows.back();
    text += columns.of(branch).line(tree_prefix(stem, ends), row);
  }
  return text;
}

std::string branch_text(const Branch &branch, const std::string &stem, bool is_last,
                        const TreeColumns &columns) {
  if (branch.group.empty()) return rows_text(branch, stem, is_last, columns);
  const Prefix prefix = tree_prefix(stem, is_last);
  return paragraph(prefix, branch.group) + rows_text(branch, prefix.next, true, columns);
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

std::string size_text(const LogicalUnit &unit) {
  std::string text;
  if (unit.capacity) text += ", " + size_words(static_cast<double>(*unit.capacity));
  if (unit.block_size) text += fmt::format(", {}-byte blocks", *unit.block_size);
  return text;
}

std::string unit_text(const LogicalUnit &unit, bool is_last, const TreeColumns &columns) {
  const Prefix prefix = tree_prefix("", is_last);
  const std::string &stem = prefix.next;
  std::string text =
      paragraph(prefix, fmt::format("{} {}{}", identifier_type_words(unit.identifier_kind),
                                    unit.identifier, size_text(unit)));
  text += paragraph(Prefix(stem), maker_text(unit));
  const std::vector<Branch> list = branches(unit);
  for (const Branch &branch : list)
    text += branch_text(branch, stem, &branch == &list.back(), columns);
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
  TreeColumns columns;
  for (const LogicalUnit &unit : found.units) {
    for (const Branch &branch : branches(unit)) {
      for (const Columns::Row &row : branch.rows)
        columns.of(branch).measure(row);
    }
  }
  std::string text = summary(found) + "\n";
  for (const LogicalUnit &unit : found.units) {
    text += unit_text(unit, &unit == &found.units.back(), columns);
  }
  return text;
}

// --- a line for each node ---

Columns::Row node_row(const LogicalUnit &unit, const Path &path) {
  const std::string size = unit.capacity ? size_words(static_cast<double>(*unit.capacity)) : "-";
  const std::string state = path.access ? access_state_words(path.access->state)
                                        : std::string(is_multipath(path.node) ? "multipath" : "-");
  return {path.node,
          path.address.empty() ? "-" : path.address,
          size,
          state,
          unit.identifier,
          path.readiness.words()};
}

std::string node_list(const Discovery &found) {
  std::vector<Columns::Row> rows = {{"Node", "Address", "Size", "Access", "Unit", "State"}};
  for (const LogicalUnit &unit : found.units) {
    for (const std::vector<Path> *paths : {&unit.multipath_nodes, &unit.paths}) {
      for (const Path &path : *paths)
        rows.push_back(node_row(unit, path));
    }
  }
  Columns columns;
  for (const Columns::Row &row : rows)
    columns.measure(row);
  std::string text;
  for (const Columns::Row &row : rows)
    text += columns.unbroken_line(row);
  return text;
}

// --- JSON ---

Json paths_json(const std::vector<Path> &paths) {
  Json list = Json::array();
  for (const Path &path : paths) {
    list.push_back(
        {{"node", path.node},
         {"major", path.number.major},
         {"minor", path.number.minor},
         {"scsi_address", path.address.empty() ? Json() : Json(path.address)},
         {"port_group", path.access ? Json(path.access->group) : Json()},
         {"access_state", path.access ? Json(access_state_words(path.access->state)) : Json()},
         {"preferred", path.access ? Json(path.access->preferred) : Json()},
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
          {"capacity", json_or_null(unit.capacity)},
          {"block_size", json_or_null(unit.block_size)},
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

struct Options {
  std::vector<std::string> nodes;
  bool list = false;
  bool dot = false;
};

void run(Context &context, const Options &options) {
  if (options.dot && context.json)
    throw Error::usage("discover: --dot and --json exclude each other");
  std::vector<std::string> nodes = options.nodes;
  if (nodes.empty()) nodes = find_nodes();
  if (!nodes.empty()) require_control_node("discover");
  const Discovery found = discover(nodes);
  for (const Unanswered &node : found.unanswered)
    context.report(node.error);
  if (options.dot) {
    print_text(discovery_dot(found));
    return;
  }
  const std::string text =
      nodes.empty()  ? "No devices: no sd disks in /proc/partitions, no multipath nodes in "
                       "/dev/kz/rjox.\n"
      : options.list ? node_list(found)
                     : tree(found);
  context.print({text, discovery_json(found)});
}

}  // namespace

Subcommand add_discover(CLI::App &app, Context &context) {
  CLI::App *parser =
      app.add_subcommand("discover", "Find the logical units and the paths that lead to them");
  const auto options = std::make_shared<Options>();
  parser->add_option("NODE", options->nodes, "Device nodes; without them, all that the host has")
      ->option_text("...");
  CLI::Option *list =
      parser->add_flag("--list", options->list, "Print a line for each node, to search and sort");
  parser->add_flag("--dot", options->dot, "Print a drawing for Graphviz")->excludes(list);
  parser->footer(
      "Asks each node who it is and whether it is ready, and puts nodes that lead to\n"
      "the same logical unit together. Without nodes it asks the sd disks that\n"
      "/proc/partitions lists and the multipath nodes in /dev/kz/rjox. Paths stand\n"
      "below their target port groups, the ones in the best access state first.\n\n"
      "Examples:\n"
      "  kzddl --sim discover\n"
      "  kzddl discover --route direct /dev/sda /dev/sdb\n"
      "  kzddl discover --list | grep sdc\n"
      "  kzddl --sim=array.json discover --json\n"
      "  kzddl --sim discover --dot | dot -Tpng -o array.png");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
