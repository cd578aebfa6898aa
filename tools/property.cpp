#include "tools/property.h"

#include <fmt/format.h>

#include <new>

#include "base/memory.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "kzddl/ddlproperty_dynamic.h"
#include "kzddl/ddlts.h"
#include "tools/error.h"

namespace tool {
namespace {

/// About log2 of the disks of a large host: a value such as a vendor is linked with all of them.
constexpr std::int32_t levels = 20;

ddl_prop_table large_host = {
    .convert = [](const char *) { return std::int32_t{0}; },
    .val_level = [](std::int32_t) { return levels; },
    .asso_level = [](std::int32_t) { return levels; },
};

/// A look-up's array and the number that came with it. It descends; people read upwards.
template <class Result, class Make>
std::vector<Result> ascending(std::int32_t n, const Make &make) {
  std::vector<Result> list;
  for (std::int32_t i = n; i > 0; --i)
    list.push_back(make(i - 1));
  return list;
}

using Array = kzddl::Owned<const char *[]>;

std::vector<Value> take(std::int32_t n, const char **values) {
  const Array owner(values);
  return ascending<Value>(n, [values](std::int32_t i) { return Value(values[i]); });
}

void store(const char *property, const Value &value) {
  const char *const one[] = {value.typed(), nullptr};
  set_property_ts(property, one);
}

}  // namespace

Value::Value(std::string_view payload, std::uint8_t type) {
  if (payload.size() > KZDDL_TS_MAX_PAYLOAD) {
    throw Error::failure(fmt::format("too long for a value: {}", payload));
  }
  typed_ = {KZDDL_TS_MARKER, static_cast<char>(type), static_cast<char>(payload.size())};
  typed_ += payload;
}

Value::Value(const char *typed) : typed_(typed, ts_len(typed)) {}

std::uint8_t Value::type() const { return static_cast<std::uint8_t>(typed_[1]); }

std::string_view Value::payload() const {
  return std::string_view(typed_).substr(KZDDL_TS_HEADER_SIZE);
}

std::string Value::shown() const {
  if (type() == KZDDL_TS_TEXT) return escaped(payload());
  char *digits = nullptr;
  if (ts_tostring(typed(), &digits) != 0) throw std::bad_alloc();
  const kzddl::Owned<char> owner(digits);
  return digits;
}

Json Value::json() const {
  return {{"type", type()}, {type() == KZDDL_TS_TEXT ? "text" : "hex", shown()}};
}

void create_database() { init_property_list(&large_host); }

void relate(const char *p, const Value &x, const char *q, const Value &y) {
  store(p, x);
  store(q, y);
  if (set_asso_ts(p, x.typed(), q, y.typed()) != 0) throw std::bad_alloc();
}

std::vector<Value> values_of(const std::string &property) {
  const char **values = nullptr;
  const std::int32_t n = get_property_ts(property.c_str(), &values);
  return take(n, values);
}

std::vector<Link> links_of(const std::string &property, const Value &value) {
  const char **names = nullptr;
  const char **values = nullptr;
  const std::int32_t n = get_asso_ts(property.c_str(), value.typed(), &names, &values);
  const Array names_owner(names);
  const Array values_owner(values);
  return ascending<Link>(n, [=](std::int32_t i) { return Link{names[i], Value(values[i])}; });
}

std::vector<Value> linked(const char *p, const Value &x, const std::string &q) {
  const char **values = nullptr;
  const std::int32_t n = get_asso_val_ts(p, x.typed(), q.c_str(), &values);
  return take(n, values);
}

}  // namespace tool
