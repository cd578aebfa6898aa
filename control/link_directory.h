// A directory of symbolic links that a service keeps while it runs.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace control {

class LinkDirectory {
 public:
  /// Makes the directory, or takes over the links that a service left there when it was killed.
  explicit LinkDirectory(std::filesystem::path directory);
  LinkDirectory(const LinkDirectory &) = delete;
  LinkDirectory &operator=(const LinkDirectory &) = delete;
  /// Removes the links, and the directory if it is empty then.
  ~LinkDirectory();

  /// Makes the links those of `wanted`, from name to target. What is no link stays as it is. A
  /// link is changed in one step: it leads to the old target or to the new one.
  void show(const std::map<std::string, std::string> &wanted);

 private:
  std::filesystem::path directory_;
};

}  // namespace control
