// A unit's state in a file, through which processes share it: each is a host at the same array.
#pragma once

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>
#include <utility>

namespace sim {

/// Why a state cannot be read or kept; names the file.
class StateError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Every function throws StateError.
class StateFile {
 public:
  explicit StateFile(std::filesystem::path file) : file_(std::move(file)) {}

  /// Keeps other processes out while it lives.
  class Lock {
   public:
    explicit Lock(const StateFile &file);
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
    ~Lock();

   private:
    int fd_ = -1;
  };

  /// Null when nothing was saved yet.
  nlohmann::json load() const;

  /// Puts a new file in the place of the old one: nobody ever sees half of it.
  void save(const nlohmann::json &state) const;

  [[noreturn]] void fail(const std::string &reason) const;

 private:
  std::filesystem::path file_;
};

}  // namespace sim
