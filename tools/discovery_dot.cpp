#include "tools/discovery_dot.h"

#include <fmt/format.h>

#include <iterator>
#include <map>
#include <vector>

#include "tools/capacity.h"
#include "tools/vpd.h"

namespace tool {
namespace {

/// Text in a quoted string, where a backslash begins an escape and lines end in "\n".
std::string quoted(const std::vector<std::string> &lines) {
  std::string text;
  for (const std::string &line : lines) {
    if (line.empty()) continue;
    if (!text.empty()) text += "\\n";
    for (const char c : line) {
      if (c == '"' || c == '\\') text += '\\';
      text += c;
    }
  }
  return '"' + text + '"';
}

constexpr std::string_view sick_color = "#c62828";

/// Fill colors of port groups by their state.
std::string_view state_color(const AccessPath &access) {
  static constexpr std::string_view colors[] = {"#c8e6c9", "#fff3c4", "#cfd8dc", "#ffcdd2"};
  return access.state && *access.state < std::size(colors) ? colors[*access.state] : "#eeeeee";
}

class Drawing {
 public:
  explicit Drawing(const Discovery &found) {
    std::map<std::string, std::vector<const LogicalUnit *>> cabinets;
    for (const LogicalUnit &unit : found.units)
      cabinets[unit.cabinet].push_back(&unit);
    for (const auto &[cabinet, units] : cabinets)
      add_cabinet(cabinet, units);
    for (const Unanswered &node : found.unanswered)
      add_box(node.node, {node.address, Problem(node.error).words()}, "white", true);
  }

  std::string text() const {
    return "digraph discovery {\n"
           "  rankdir=LR; ranksep=0.6; nodesep=0.12; fontname=\"Helvetica\"; fontsize=12;\n"
           "  node [shape=box, style=\"rounded,filled\", fillcolor=white, fontname=\"Helvetica\","
           " fontsize=10, height=0.3, margin=\"0.1,0.04\"];\n"
           "  edge [color=\"#607d8b\", arrowsize=0.6];\n" +
           nodes_ + clusters_ + edges_ + "}\n";
  }

 private:
  void add_cabinet(const std::string &cabinet, const std::vector<const LogicalUnit *> &units) {
    clusters_ += fmt::format(
        "  subgraph cluster_{} {{\n"
        "    label={}; labeljust=r; style=\"rounded,filled\"; color=\"#90a4ae\";"
        " fillcolor=\"#f5f7f8\";\n",
        next_++, quoted({cabinet.empty() ? "no cabinet serial" : "cabinet " + cabinet}));
    for (const LogicalUnit *unit : units)
      add_unit(*unit);
    clusters_ += "  }\n";
  }

  void add_unit(const LogicalUnit &unit) {
    const std::string id = fmt::format("unit{}", next_++);
    clusters_ += fmt::format(
        "    {} [style=filled, fillcolor=\"#bbdefb\", height=0.6, label={}];\n", id,
        quoted({fmt::format("{} {}", identifier_type_words(unit.identifier_kind), unit.identifier),
                unit.vendor + (unit.vendor.empty() ? "" : " ") + unit.product,
                unit.capacity ? size_words(static_cast<double>(*unit.capacity)) : ""}));
    std::vector<std::string> multipath;
    for (const Path &node : unit.multipath_nodes)
      multipath.push_back(add_node(node, "#e1bee7"));
    std::map<unsigned, std::string> groups;
    for (const Path &path : unit.paths) {
      const std::string path_id = add_node(path, "white");
      for (const std::string &from : multipath)
        add_edge(from, path_id);
      if (path.access && !groups.contains(path.access->group)) {
        groups[path.access->group] = add_group(*path.access, id);
      }
      add_edge(path_id, path.access ? groups[path.access->group] : id);
    }
    if (!unit.paths.empty()) return;
    for (const std::string &from : multipath)
      add_edge(from, id);
  }

  std::string add_node(const Path &path, std::string_view color) {
    std::vector<std::string> notes = {path.address, path.readiness.words()};
    for (const Problem &problem : path.problems) {
      if (!problem.is_readiness()) notes.push_back(problem.words());
    }
    return add_box(path.node, notes, color, !path.problems.empty());
  }

  std::string add_box(const std::string &node, const std::vector<std::string> &notes,
                      std::string_view color, bool is_sick) {
    std::string id = fmt::format("node{}", next_++);
    const std::string mark =
        is_sick ? fmt::format(", color=\"{0}\", fontcolor=\"{0}\"", sick_color) : "";
    nodes_ += fmt::format("  {} [fillcolor=\"{}\", label={}, tooltip={}{}];\n", id, color,
                          quoted({node}), quoted(notes), mark);
    return id;
  }

  std::string add_group(const AccessPath &access, const std::string &unit) {
    std::string id = fmt::format("group{}", next_++);
    clusters_ +=
        fmt::format("    {} [height=0.6, fillcolor=\"{}\", label={}];\n", id, state_color(access),
                    quoted({fmt::format("port group {}", access.group),
                            access.state_words() + (access.preferred ? ", preferred" : "")}));
    add_edge(id, unit);
    return id;
  }

  void add_edge(const std::string &from, const std::string &to) {
    edges_ += fmt::format("  {} -> {};\n", from, to);
  }

  unsigned next_ = 0;
  std::string nodes_;
  std::string clusters_;
  std::string edges_;
};

}  // namespace

std::string discovery_dot(const Discovery &found) { return Drawing(found).text(); }

}  // namespace tool
