#include "sim/json_value.h"

#include <algorithm>

#include "sim/array.h"

namespace sim {

void Value::fail(const std::string &what) const {
  throw ArrayError((place_.empty() ? "/" : place_) + ": " + what);
}

void Value::require_object(std::initializer_list<const char *> keys) const {
  if (!value_.is_object()) fail("expected an object");
  for (const auto &[key, unused] : value_.items()) {
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
      fail("unknown key \"" + key + "\"");
    }
  }
}

Value Value::at(const char *key) const {
  if (!has(key)) fail(std::string("\"") + key + "\" is missing");
  return {value_.at(key), place_ + "/" + key};
}

std::vector<Value> Value::list() const {
  if (!value_.is_array() || value_.empty()) fail("expected a list that is not empty");
  std::vector<Value> values;
  for (std::size_t i = 0; i < value_.size(); ++i) {
    values.emplace_back(value_[i], place_ + "/" + std::to_string(i));
  }
  return values;
}

std::string Value::text() const {
  if (!value_.is_string()) fail("expected text");
  return value_.get<std::string>();
}

std::string Value::text(std::size_t longest) const {
  std::string result = text();
  if (result.size() > longest) fail("at most " + std::to_string(longest) + " characters");
  return result;
}

std::size_t Value::choice(std::initializer_list<const char *> words) const {
  const auto found = std::find(words.begin(), words.end(), text());
  if (found != words.end()) return static_cast<std::size_t>(found - words.begin());
  std::string expected;
  for (const char *const *word = words.begin(); word != words.end(); ++word) {
    const char *separator = word == words.begin() ? "" : word + 1 == words.end() ? " or " : ", ";
    expected += std::string(separator) + "\"" + *word + "\"";
  }
  fail("expected " + expected);
}

bool Value::boolean() const {
  if (!value_.is_boolean()) fail("expected true or false");
  return value_.get<bool>();
}

std::uint64_t Value::number(std::uint64_t least, std::uint64_t largest) const {
  if (value_.is_number_unsigned()) {
    const auto number = value_.get<std::uint64_t>();
    if (number >= least && number <= largest) return number;
  }
  fail("expected a whole number from " + std::to_string(least) + " to " + std::to_string(largest));
}

std::pair<unsigned, unsigned> Value::pair(char separator, int base, unsigned largest) const {
  const std::string content = text();
  const char *start = content.c_str();
  char *end = nullptr;
  const unsigned long first = std::strtoul(start, &end, base);
  if (end != start && *end == separator) {
    const char *second_start = end + 1;
    const unsigned long second = std::strtoul(second_start, &end, base);
    if (end != second_start && *end == '\0' && first <= largest && second <= largest) {
      return {static_cast<unsigned>(first), static_cast<unsigned>(second)};
    }
  }
  fail(std::string("expected two ") + (base == 16 ? "hexadecimal " : "") + "numbers with \"" +
       separator + "\" between them");
}

}  // namespace sim
