// The property database from a test's side: arguments and results as strings of C++, a payload
// for each value, the nodes that lie before a stored name and a stored value, and what an array
// support library registers and answers.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "kzddl/ddl_name_value_api.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "kzddl/ddlproperty_dynamic.h"
#include "property/ddlproperty_store.h"

namespace kzddl_test {

using Strings = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

/// A typed string of `payload`.
inline std::string typed(const std::string &payload, char type = 0) {
  return std::string{KZDDL_TS_MARKER, type, static_cast<char>(payload.size())} + payload;
}

inline std::string payload_of(const char *typed) {
  return {typed + KZDDL_TS_HEADER_SIZE, static_cast<unsigned char>(typed[2])};
}

/// A null-terminated array of arguments, which points at the strings.
inline std::vector<const char *> pointers(const Strings &strings) {
  std::vector<const char *> array;
  for (const std::string &s : strings)
    array.push_back(s.c_str());
  array.push_back(nullptr);
  return array;
}

inline int set(const std::string &name, const Strings &values) {
  return set_property(name.c_str(), pointers(values).data());
}

inline int set_ts(const std::string &name, const Strings &values) {
  return set_property_ts(name.c_str(), pointers(values).data());
}

inline int erase(const std::string &name, const Strings &values) {
  return delete_property(name.c_str(), pointers(values).data());
}

inline int erase_ts(const std::string &name, const Strings &values) {
  return delete_property_ts(name.c_str(), pointers(values).data());
}

/// A result array of `n` entries, checked for its null entry and released.
inline std::vector<const char *> take(int n, const char **array) {
  if (n <= 0) return {};
  EXPECT_EQ(array[n], nullptr);
  std::vector<const char *> entries(array, array + n);
  std::free(array);
  return entries;
}

inline Strings payloads(int n, const char **array) {
  Strings strings;
  for (const char *entry : take(n, array))
    strings.push_back(payload_of(entry));
  return strings;
}

inline Strings values_of(const std::string &name) {
  const char **array = nullptr;
  const int n = get_property_ts(name.c_str(), &array);
  return payloads(n, array);
}

inline Strings linked(const std::string &p, const std::string &x, const std::string &q) {
  const char **array = nullptr;
  const int n = get_asso_val_ts(p.c_str(), x.c_str(), q.c_str(), &array);
  return payloads(n, array);
}

inline Strings selected(const std::string &p, const std::string &x, unsigned op,
                        const std::string &q) {
  const char **array = nullptr;
  const int n = select_asso_val_ts(p.c_str(), x.c_str(), op, q.c_str(), &array);
  return payloads(n, array);
}

/// All links of a value: names as stored, and payloads.
inline Pairs links_of(const std::string &p, const std::string &x) {
  const char **names = nullptr;
  const char **values = nullptr;
  const int n = get_asso_ts(p.c_str(), x.c_str(), &names, &values);
  const auto name_entries = take(n, names);
  const Strings value_entries = payloads(n, values);
  Pairs pairs;
  for (int i = 0; i < n; ++i)
    pairs.emplace_back(name_entries[i], value_entries[i]);
  return pairs;
}

inline int associate(const std::string &p, const std::string &x, const std::string &q,
                     const std::string &y) {
  return set_asso(p.c_str(), x.c_str(), q.c_str(), y.c_str());
}

inline int dissociate(const std::string &p, const std::string &x, const std::string &q,
                      const std::string &y) {
  return delete_asso(p.c_str(), x.c_str(), q.c_str(), y.c_str());
}

/// Stores both values and links them.
inline void relate(const std::string &p, const std::string &x, const std::string &q,
                   const std::string &y) {
  ASSERT_EQ(set(p, {x}), 1);
  ASSERT_EQ(set(q, {y}), 1);
  ASSERT_EQ(associate(p, x, q, y), 0);
}

/// The node of a property that has a value, for faults that only a broken program makes.
inline kzddl::pnode *property_node(const std::string &name) {
  const std::string probe = "~probe";
  relate(probe, "x", name, typed(values_of(name).at(0)));
  const char **names = nullptr;
  const char **values = nullptr;
  const int n = get_asso_ts(probe.c_str(), "x", &names, &values);
  const char *stored_name = take(n, names).at(0);
  std::free(values);
  EXPECT_EQ(destroy_property(probe.c_str()), 0);
  return const_cast<kzddl::pnode *>(reinterpret_cast<const kzddl::pnode *>(stored_name)) - 1;
}

inline kzddl::vnode *value_node(const char *stored) {
  return const_cast<kzddl::vnode *>(reinterpret_cast<const kzddl::vnode *>(stored)) - 1;
}

/// The value that holds a pointer.
template <class T>
std::string address(T *pointer) {
  return typed(std::string(reinterpret_cast<const char *>(&pointer), sizeof pointer), 1);
}

/// What a library answers: one pair with `value`.
inline std::int32_t answer_with(const std::string &attr, const std::string &value, char ***list) {
  char *pair = nullptr;
  nv_set_value(&pair, attr.c_str(), value.c_str());
  nv_create_list(list, pair, nullptr);
  nv_free(pair);
  return 0;
}

/// The handler record of a library, at an address that suits its mutex.
struct Handler {
  alignas(8) unsigned char lead[4] = {};
  unsigned char record[KZDDL_HANDLER_MUTEX] = {};
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};
static_assert(offsetof(Handler, mutex) - offsetof(Handler, record) == KZDDL_HANDLER_MUTEX);

/// An empty database before each test; emptied afterwards, which asserts all its counters.
class DatabaseTest : public testing::Test {
 protected:
  DatabaseTest() { init_property_list(nullptr); }
  ~DatabaseTest() override { init_property_list(nullptr); }
};

}  // namespace kzddl_test
