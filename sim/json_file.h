// Files of JSON, and what is wrong with them.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

namespace sim {

/// Why a file cannot be read, or the place of a mistake in it; without the file's name.
class JsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  explicit JsonError(const nlohmann::json::exception &error);
};

/// What the file holds; nothing when there is no such file. Throws JsonError.
std::optional<nlohmann::json> read_json(const std::string &file);

}  // namespace sim
