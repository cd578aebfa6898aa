#include "control/unit_names.h"

#include <fmt/format.h>

namespace control {
namespace {

bool stands_for_itself(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         std::string_view(".-+:@").find(c) != std::string_view::npos;
}

}  // namespace

std::string file_name(std::string_view identifier) {
  std::string name;
  for (const char c : identifier) {
    const bool hides = c == '.' && name.empty();  // ".", "..", and files that ls does not show
    if (stands_for_itself(c) && !hides) {
      name += c;
    } else {
      name += fmt::format("_{:02X}", static_cast<unsigned char>(c));
    }
  }
  return name;
}

UnitNodes choose_nodes(const std::vector<UnitPath> &paths) {
  std::map<std::string, const UnitPath *> best;
  for (const UnitPath &path : paths) {
    const auto [place, first] = best.try_emplace(path.unit, &path);
    if (!first && path.access.rank() < place->second->access.rank()) place->second = &path;
  }
  UnitNodes nodes;
  for (const auto &[unit, path] : best) {
    nodes.block.emplace(unit, path->block);
    if (!path->raw.empty()) nodes.raw.emplace(unit, path->raw);
  }
  return nodes;
}

}  // namespace control
