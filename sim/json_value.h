// A value of a JSON file that knows where it stands: every mistake is reported with its place.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace sim {

/// Refers to a document that must live on. Its functions throw ArrayError.
class Value {
 public:
  Value(const nlohmann::json &value, std::string place) : value_(value), place_(std::move(place)) {}

  [[noreturn]] void fail(const std::string &what) const;

  /// Requires an object with no other keys than these: a mistyped key is a mistake, not a default.
  void require_object(std::initializer_list<const char *> keys) const;

  bool has(const char *key) const { return value_.contains(key); }
  Value at(const char *key) const;
  std::vector<Value> list() const;

  std::string text() const;
  std::string text(std::size_t longest) const;
  /// One of these words, by its index.
  std::size_t choice(std::initializer_list<const char *> words) const;
  bool is_text() const { return value_.is_string(); }
  bool is_list() const { return value_.is_array(); }
  bool is_false() const { return value_.is_boolean() && !value_.get<bool>(); }
  bool boolean() const;
  /// A whole number.
  std::uint64_t number(std::uint64_t least, std::uint64_t largest) const;
  template <class Number>
  Number number() const {
    return static_cast<Number>(number(0, std::numeric_limits<Number>::max()));
  }
  /// Two numbers in text, as in "8:16" or (hexadecimal) "04/0B".
  std::pair<unsigned, unsigned> pair(char separator, int base, unsigned largest) const;

  // Where the key is there: its value.
  void read(const char *key, std::string &field, std::size_t longest) const {
    if (has(key)) field = at(key).text(longest);
  }
  template <class Number>
  void read(const char *key, Number &field) const {
    if (has(key)) field = at(key).number<Number>();
  }
  void read(const char *key, bool &field) const {
    if (has(key)) field = at(key).boolean();
  }

 private:
  const nlohmann::json &value_;
  std::string place_;
};

}  // namespace sim
