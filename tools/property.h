// The library's property database from a program's side: values as strings of C++, look-ups as
// vectors in ascending order.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/view.h"

namespace tool {

/// A value: a payload of any bytes, and what they are.
class Value {
 public:
  static constexpr std::uint8_t binary = 1;

  /// Text, or what `type` says. Throws Error when it is longer than a value can be.
  explicit Value(std::string_view payload, std::uint8_t type = 0);
  /// A copy of a typed string.
  explicit Value(const char *typed);

  /// The address of an object or function, as the database keeps one.
  template <class T>
  static Value address_of(T *pointer) {
    return Value({reinterpret_cast<const char *>(&pointer), sizeof pointer}, binary);
  }

  std::uint8_t type() const;
  std::string_view payload() const;
  /// As the functions of the database take it.
  const char *typed() const { return typed_.c_str(); }

  /// For people: text escaped, anything else as hexadecimal digits.
  std::string shown() const;
  Json json() const;

 private:
  std::string typed_;
};

/// One end of an association, seen from the other.
struct Link {
  std::string property;
  Value value;
};

/// Creates the database, or empties it, for as many disks as a host may have.
void create_database();

/// Links value `x` of `p` with value `y` of `q`, and stores what is not there yet. Throws
/// std::bad_alloc when memory is short.
void relate(const char *p, const Value &x, const char *q, const Value &y);

/// The values of a property; none when there is no such property.
std::vector<Value> values_of(const std::string &property);

/// Everything that a value is linked with, and what it is linked with in one property.
std::vector<Link> links_of(const std::string &property, const Value &value);
std::vector<Value> linked(const char *p, const Value &x, const std::string &q);

}  // namespace tool
