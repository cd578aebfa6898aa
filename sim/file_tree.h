// The names that the simulated host answers for, as a file system has them.
//
// Not safe for concurrent use: the host's mutex guards it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace sim {

class FileTree {
 public:
  enum class Kind { directory, file, link, node };

  /// What a file holds now; empty: there is no such file.
  using Read = std::function<std::optional<std::string>()>;

  struct Entry {
    Kind kind = Kind::directory;
    bool whole = false;    ///< a directory in which nothing real is seen
    std::string target{};  ///< where a link leads
    Read read{};           ///< a file's
    std::string owner{};   ///< the node that it goes away with; none when empty
    std::map<std::string, std::unique_ptr<Entry>> children{};  ///< a directory's
  };

  /// `is_gone` says of an owner whether what belongs to it is not there now.
  explicit FileTree(std::function<bool(const std::string &)> is_gone)
      : is_gone_(std::move(is_gone)) {}

  // Names are absolute. What stood there before is replaced.
  void add_directory(const std::string &name) { at(name).whole = true; }
  void add_file(const std::string &name, Read read, const std::string &owner = {});
  void add_link(const std::string &name, const std::string &target, const std::string &owner = {});
  void add_node(const std::string &name) { at(name).kind = Kind::node; }
  /// With all that lies in it.
  void remove(const std::string &name);

  struct Found {
    std::string name{};            ///< without links on the way
    const Entry *entry = nullptr;  ///< null: there is nothing
  };
  /// What stands at a name, also through links; the last part's own link only if `follow` says so.
  /// Empty: that is the real system's affair.
  std::optional<Found> find(const std::string &name, bool follow = true) const;
  bool is_there(const Entry &entry) const { return entry.owner.empty() || !is_gone_(entry.owner); }

 private:
  /// The entry, and the directories above it, which are made where they are not there.
  Entry &at(const std::string &name);

  std::function<bool(const std::string &)> is_gone_;
  Entry root_;
};

}  // namespace sim
