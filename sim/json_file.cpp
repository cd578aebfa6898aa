#include "sim/json_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace sim {
namespace {

using nlohmann::json;

/// The library's text without its mark: "[json.exception.parse_error.101] parse error at
/// line 1...".
std::string words_of(const json::exception &error) {
  const std::string text = error.what();
  return text.substr(text.find("] ") + 2);
}

}  // namespace

JsonError::JsonError(const json::exception &error) : JsonError(words_of(error)) {}

std::optional<json> read_json(const std::string &file) {
  std::ifstream stream(file);
  if (!stream) {
    if (errno == ENOENT) return std::nullopt;
    throw JsonError(std::strerror(errno));
  }
  try {
    return json::parse(stream);
  } catch (const json::exception &error) {
    throw JsonError(error);
  } catch (const std::ios_base::failure &error) {
    throw JsonError(error.code().message());
  }
}

}  // namespace sim
