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

/// Why it is not known which unit a node leads to.
std::string node_problem(const Unanswered &node) { return Problem(node.error).words(); }

Columns::Row path_row(const Path &path) {
  return {path.node, path.address, path.number.text(), path.readiness.words()};
}

/// A node's line, and one for each question that it failed to answer.
struct NodeLines {
  Columns::Row row;
  std::vector<std::string> problems{};
};

/// What hangs below a unit: a node, or a port group and the paths through it.
struct Branch {
  std::string group;
  std::vector<NodeLines> nodes;
};

NodeLines path_lines(const Path &path) {
  NodeLines lines{path_row(path)};
  for (const Problem &problem : path.problems) {
    if (!problem.is_readiness()) lines.problems.push_back(problem.words());
  }
  return lines;
}

/// Multipath nodes before the paths behind them.
std::vector<Branch> branches(const LogicalUnit &unit) {
  std::vector<Branch> list;
  const auto add_node = [&list](std::string_view kind, const Path &path) {
    NodeLines lines = path_lines(path);
    lines.row.insert(lines.row.begin(), std::string(kind));
    list.push_back({{}, {std::move(lines)}});
  };
  for (const Path &path : unit.multipath_nodes)
    add_node("multipath", path);
  for (const Path &path : unit.paths) {
    if (!path.access) {
      add_node("path", path);
    } else {
      const std::string group = path.access->words();
      if (list.empty() || list.back().group != group) list.push_back({group, {}});
      list.back().nodes.push_back(path_lines(path));
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

std::string nodes_text(const Branch &branch, const std::string &stem, bool is_last,
                       const TreeColumns &columns) {
  std::string text;
  for (const NodeLines &node : branch.nodes) {
    const Prefix prefix = tree_prefix(stem, is_last && &node == &branch.nodes.back());
    text += columns.of(branch).line(prefix, node.row);
    for (const std::string &problem : node.problems)
      text += paragraph({prefix.next, prefix.next + "  "}, problem);
  }
  return text;
}

std::string branch_text(const Branch &branch, const std::string &stem, bool is_last,
                        const TreeColumns &columns) {
  if (branch.group.empty()) return nodes_text(branch, stem, is_last, columns);
  const Prefix prefix = tree_prefix(stem, is_last);
  return paragraph(prefix, branch.group) + nodes_text(branch, prefix.next, true, columns);
}

/// Did a node of the unit fail to tell whether there is a cabinet's serial number?
bool is_cabinet_in_doubt(const LogicalUnit &unit) {
  const auto failed = [](const Path &path) {
    return std::ranges::any_of(path.problems, [](const Problem &problem) {
      return problem.operation.starts_with("inquiry");
    });
  };
  return std::ranges::any_of(unit.paths, failed) ||
         std::ranges::any_of(unit.multipath_nodes, failed);
}

std::string cabinet_text(const LogicalUnit &unit) {
  if (!unit.cabinet.empty()) return "cabinet " + unit.cabinet;
  return is_cabinet_in_doubt(unit) ? "cabinet not known" : "no cabinet serial";
}

std::string maker_text(const LogicalUnit &unit) {
  std::string text;
  for (const std::string *part : {&unit.vendor, &unit.product}) {
    if (!part->empty()) text += fmt::format("{}{}", text.empty() ? "" : " ", *part);
  }
  if (text.empty()) text = unit.device_type;
  if (!unit.revision.empty()) text += fmt::format(" rev {}", unit.revision);
  return text + ", " + cabinet_text(unit);
}

std::string size_text(const LogicalUnit &unit) {
  std::string text;
  if (unit.capacity) text += ", " + size_words(static_cast<double>(*unit.capacity));
  if (unit.block_size) text += fmt::format(", {}-byte blocks", *unit.block_size);
  return text;
}

/// A block of the tree: what its first lines say, and what hangs below them.
struct Block {
  std::string head;
  std::string more{};
  std::vector<Branch> branches;
};

Block unit_block(const LogicalUnit &unit) {
  return {.head = fmt::format("{} {}{}", identifier_type_words(unit.identifier_kind),
                              unit.identifier, size_text(unit)),
          .more = maker_text(unit),
          .branches = branches(unit)};
}

/// Nobody knows whether these lead to one of the other units.
Block unanswered_block(const std::vector<Unanswered> &nodes) {
  Block block{.head = "logical unit not known", .branches = {}};
  for (const Unanswered &node : nodes) {
    block.branches.push_back({{},
                              {{{"node", node.node, node.address,
                                 node.number ? node.number->text() : "", node_problem(node)}}}});
  }
  return block;
}

std::vector<Block> blocks(const Discovery &found) {
  std::vector<Block> list;
  for (const LogicalUnit &unit : found.units)
    list.push_back(unit_block(unit));
  if (!found.unanswered.empty()) list.push_back(unanswered_block(found.unanswered));
  return list;
}

std::string block_text(const Block &block, bool is_last, const TreeColumns &columns) {
  const Prefix prefix = tree_prefix("", is_last);
  const std::string &stem = prefix.next;
  std::string text = paragraph(prefix, block.head);
  if (!block.more.empty()) text += paragraph(Prefix(stem), block.more);
  for (const Branch &branch : block.branches)
    text += branch_text(branch, stem, &branch == &block.branches.back(), columns);
  return text + (is_last ? "" : paragraph(Prefix(stem), ""));
}

std::string summary(const Discovery &found) {
  std::size_t paths = 0;
  std::size_t multipath = 0;
  std::size_t not_ready = 0;
  std::size_t in_doubt = 0;
  const auto is_not_ready = [](const Path &path) { return !path.readiness.ready; };
  const auto is_in_doubt = [](const Path &path) {
    return !std::ranges::all_of(path.problems, &Problem::is_readiness);
  };
  for (const LogicalUnit &unit : found.units) {
    paths += unit.paths.size();
    multipath += unit.multipath_nodes.size();
    not_ready += static_cast<std::size_t>(std::ranges::count_if(unit.paths, is_not_ready));
    in_doubt += static_cast<std::size_t>(std::ranges::count_if(unit.paths, is_in_doubt) +
                                         std::ranges::count_if(unit.multipath_nodes, is_in_doubt));
  }
  std::string text = fmt::format("{}, {}, {}", counted(found.units.size(), "logical unit"),
                                 counted(paths, "path"), counted(multipath, "multipath node"));
  if (not_ready != 0) text += fmt::format("; {} not ready", counted(not_ready, "path"));
  if (in_doubt != 0) text += fmt::format("; {} known in part", counted(in_doubt, "node"));
  if (!found.unanswered.empty()) {
    text += fmt::format("; {} not known", counted(found.unanswered.size(), "node"));
  }
  return text;
}

std::string tree(const Discovery &found) {
  const std::vector<Block> list = blocks(found);
  TreeColumns columns;
  for (const Block &block : list) {
    for (const Branch &branch : block.branches) {
      for (const NodeLines &node : branch.nodes)
        columns.of(branch).measure(node.row);
    }
  }
  std::string text = summary(found) + "\n";
  for (const Block &block : list)
    text += block_text(block, &block == &list.back(), columns);
  return text;
}

// --- a line for each node ---

std::string or_dash(const std::string &text) { return text.empty() ? "-" : text; }

Columns::Row node_row(const LogicalUnit &unit, const Path &path) {
  const std::string size = unit.capacity ? size_words(static_cast<double>(*unit.capacity)) : "-";
  const std::string access =
      path.access ? path.access->state_words() : (is_multipath(path.node) ? "multipath" : "-");
  std::string state = path.readiness.words();
  for (const Problem &problem : path.problems) {
    if (!problem.is_readiness()) state += "; " + problem.words();
  }
  return {path.node, or_dash(path.address), size, access, unit.identifier, state};
}

std::string node_list(const Discovery &found) {
  std::vector<Columns::Row> rows = {{"Node", "Address", "Size", "Access", "Unit", "State"}};
  for (const LogicalUnit &unit : found.units) {
    for (const std::vector<Path> *paths : {&unit.multipath_nodes, &unit.paths}) {
      for (const Path &path : *paths)
        rows.push_back(node_row(unit, path));
    }
  }
  for (const Unanswered &node : found.unanswered)
    rows.push_back({node.node, or_dash(node.address), "-", "-", "-", node_problem(node)});
  Columns columns;
  for (const Columns::Row &row : rows)
    columns.measure(row);
  std::string text;
  for (const Columns::Row &row : rows)
    text += columns.unbroken_line(row);
  return text;
}

// --- JSON ---

Json text_or_null(const std::string &text) { return text.empty() ? Json() : Json(text); }

Json problems_json(const std::vector<Problem> &problems) {
  Json list = Json::array();
  for (const Problem &problem : problems)
    list.push_back(problem.json());
  return list;
}

/// What the kernel calls a node.
Json place_json(const std::string &node, const std::optional<DeviceNumber> &number,
                const std::string &address) {
  return {{"node", node},
          {"major", number ? Json(number->major) : Json()},
          {"minor", number ? Json(number->minor) : Json()},
          {"scsi_address", text_or_null(address)}};
}

Json paths_json(const std::vector<Path> &paths) {
  Json list = Json::array();
  for (const Path &path : paths) {
    const AccessPath access = path.access.value_or(AccessPath{.state = std::nullopt});
    Json json = place_json(path.node, path.number, path.address);
    json["port_group"] = path.access ? Json(access.group) : Json();
    json["access_state"] = access.state ? Json(access.state_words()) : Json();
    json["preferred"] = access.state ? Json(access.preferred) : Json();
    json["ready"] = path.readiness.ready;
    json["reason"] = path.readiness.ready ? Json() : Json(path.readiness.reason);
    json["problems"] = problems_json(path.problems);
    list.push_back(std::move(json));
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
          {"cabinet_serial", text_or_null(unit.cabinet)},
          {"multipath_nodes", paths_json(unit.multipath_nodes)},
          {"paths", paths_json(unit.paths)}};
}

Json discovery_json(const Discovery &found) {
  Json units = Json::array();
  for (const LogicalUnit &unit : found.units)
    units.push_back(unit_json(unit));
  Json unanswered = Json::array();
  for (const Unanswered &node : found.unanswered) {
    Json json = place_json(node.node, node.number, node.address);
    json["reason"] = node.error.reason();
    json["problems"] = problems_json({Problem(node.error)});
    unanswered.push_back(std::move(json));
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
  if (!found.is_sound()) context.fail();
  if (options.dot) {
    print_text(discovery_dot(found));
    return;
  }
  const std::string text =
      nodes.empty()  ? "No devices: no sd disks in /sys/class/block, no multipath nodes in "
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
      "the same logical unit together. Without nodes it asks the sd disks in\n"
      "/sys/class/block and the multipath nodes in /dev/kz/rjox. Paths stand below\n"
      "their target port groups, the ones in the best access state first. A question\n"
      "that a node fails to answer is told below it, and a node that does not say which\n"
      "unit it leads to stands below \"logical unit not known\". Exit status 1 when there\n"
      "is such a node or question, or a node is not ready.\n\n"
      "Examples:\n"
      "  kzddl --sim discover\n"
      "  kzddl discover --route direct /dev/sda /dev/sdb\n"
      "  kzddl discover --list | grep sdc\n"
      "  kzddl --sim=array.json discover --json\n"
      "  kzddl --sim discover --dot | dot -Tpng -o array.png");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
