#include "sim/file_tree.h"

#include <string_view>
#include <utility>
#include <vector>

namespace sim {
namespace {

/// Takes the first part off a name.
std::string take_part(std::string &name) {
  const std::size_t slash = name.find('/');
  std::string part = name.substr(0, slash);
  name.erase(0, slash == std::string::npos ? slash : slash + 1);
  return part;
}

}  // namespace

void FileTree::add_file(const std::string &name, Read read, const std::string &owner) {
  Entry &entry = at(name);
  entry.kind = Kind::file;
  entry.read = std::move(read);
  entry.owner = owner;
}

void FileTree::add_link(const std::string &name, const std::string &target,
                        const std::string &owner) {
  Entry &entry = at(name);
  entry.kind = Kind::link;
  entry.target = target;
  entry.owner = owner;
}

void FileTree::remove(const std::string &name) {
  Entry *directory = &root_;
  for (std::string rest = name.substr(1);;) {
    const std::string part = take_part(rest);
    const auto child = directory->children.find(part);
    if (child == directory->children.end()) return;
    if (rest.empty()) {
      directory->children.erase(child);
      return;
    }
    directory = child->second.get();
  }
}

FileTree::Entry &FileTree::at(const std::string &name) {
  Entry *entry = &root_;
  for (std::string rest = name; !rest.empty();) {
    const std::string part = take_part(rest);
    if (part.empty()) continue;
    std::unique_ptr<Entry> &child = entry->children[part];
    if (child == nullptr) child = std::make_unique<Entry>();
    entry = child.get();
  }
  return *entry;
}

std::optional<FileTree::Found> FileTree::find(const std::string &name, bool follow) const {
  constexpr int most_links = 40;
  if (!name.starts_with('/')) return std::nullopt;
  follow = follow || name.ends_with('/');
  std::vector<std::pair<std::string, const Entry *>> way{{"", &root_}};
  int links = 0;
  for (std::string rest = name; !rest.empty();) {
    const std::string part = take_part(rest);
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (way.size() > 1) way.pop_back();
      continue;
    }
    const Entry &directory = *way.back().second;
    if (directory.kind != Kind::directory) return Found{};
    const auto child = directory.children.find(part);
    if (child == directory.children.end() || !is_there(*child->second)) {
      return directory.whole ? std::optional(Found{}) : std::nullopt;
    }
    const Entry &entry = *child->second;
    if (entry.kind != Kind::link || (rest.empty() && !follow)) {
      way.emplace_back(part, &entry);
      continue;
    }
    if (++links > most_links) return Found{};
    if (entry.target.starts_with('/')) way.resize(1);
    rest = entry.target + "/" + rest;
  }
  const Entry &last = *way.back().second;
  if (last.kind == Kind::directory && !last.whole) return std::nullopt;
  Found found{.entry = &last};
  for (auto part = way.begin() + 1; part != way.end(); ++part)
    found.name += "/" + part->first;
  return found;
}

}  // namespace sim
