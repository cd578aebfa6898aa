// Associations: both halves of each link, the look-ups along them, and the whole database
// against a model of containers.
#include "kzddl/ddlproperty_asso.h"

#include <malloc.h>

#include <map>
#include <random>
#include <set>

#include "base/ascii.h"
#include "support/log_capture.h"
#include "support/property_test.h"

namespace {

using namespace kzddl_test;

class Associations : public DatabaseTest {};

TEST_F(Associations, WhatIsMissing) {
  ASSERT_EQ(set("A", {"x"}), 1);
  ASSERT_EQ(set("B", {"y"}), 1);
  const char **array = nullptr;
  EXPECT_EQ(get_asso("A", "x", &array, &array), 0);
  EXPECT_EQ(get_asso("A", "?", &array, &array), -1);
  EXPECT_EQ(get_asso("?", "x", &array, &array), -1);
  EXPECT_EQ(get_asso_val("A", "x", "B", &array), 0);
  EXPECT_EQ(get_asso_val("A", "x", "?", &array), -1);
  EXPECT_EQ(select_asso_val("A", "?", 0, "B", &array), -1);
  EXPECT_EQ(select_asso_val("A", "x", 0, "B", &array), 0);
  EXPECT_EQ(array, nullptr);
}

TEST_F(Associations, PlainFormsHandOutTexts) {
  relate("P", "x", "Q", typed("y", 3));
  const char **names = nullptr;
  const char **texts = nullptr;
  ASSERT_EQ(get_asso("P", typed("x", 9).c_str(), &names, &texts), 1);
  EXPECT_STREQ(take(1, names)[0], "Q");
  EXPECT_STREQ(take(1, texts)[0], "y");
  ASSERT_EQ(get_asso_val("P", "x", "Q", &texts), 1);
  EXPECT_STREQ(take(1, texts)[0], "y");
  EXPECT_EQ(select_asso_val("P", "x", ~0u, "Q", &texts), 0) << "no such comparison";
  ASSERT_EQ(select_asso_val("P", "x", KZDDL_ASSO_GREATER, "Q", &texts), 1);
  EXPECT_STREQ(take(1, texts)[0], "y");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Associations, ALinkTakesAtMost160BytesOfHeap) {
  constexpr int disks = 1000;
  const Strings attributes = {"a", "b", "c", "d", "e", "f", "g", "h"};
  for (int i = 0; i < disks; ++i)
    ASSERT_EQ(set("DISK", {std::to_string(i)}), 1);
  ASSERT_EQ(set("ATTR", attributes), 8);
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < disks; ++i) {
    for (const std::string &attribute : attributes)
      ASSERT_EQ(associate("DISK", std::to_string(i), "ATTR", attribute), 0);
  }
  const double each = double(mallinfo2().uordblks - before) / (disks * 8);
  EXPECT_LE(each, sizeof(void *) == 8 ? 160 : 88);
}
#endif

using AssociationsDeathTest = Associations;

TEST_F(AssociationsDeathTest, AMissingHalfStopsTheProcess) {
  relate("A", "x", "B", "y");
  const char **array = nullptr;
  ASSERT_EQ(get_property_ts("B", &array), 1);
  kzddl::vnode *y = value_node(take(1, array)[0]);
  ASSERT_EQ(get_property_ts("A", &array), 1);
  kzddl::vnode *x = value_node(take(1, array)[0]);
  std::swap(x->alist, y->alist);
  EXPECT_DEATH(erase("A", {"x"}),
               "ddlproperty_links.cpp.*`!sl_delete\\(.*asso.assov->alist, &r?asso\\)'");
  std::swap(x->alist, y->alist);
}

// The model: what the store is said to hold, in containers that cannot be wrong.

/// Payloads order as unsigned bytes, which is how std::string orders char.
struct Model {
  using Link = std::pair<std::string, std::string>;  // property in lower case, payload
  std::map<std::string, std::map<std::string, std::set<Link>>> properties;
  std::map<std::string, std::string> spelling;

  static std::string key(std::string name) {
    for (char &c : name)
      c = kzddl::to_lower(c);
    return name;
  }

  bool has(const std::string &p) const { return properties.contains(key(p)); }
  bool has(const std::string &p, const std::string &x) const {
    return has(p) && properties.at(key(p)).contains(x);
  }

  int set(const std::string &p, const Strings &values) {
    for (const std::string &x : values) {
      spelling.try_emplace(key(p), p);
      properties[key(p)].try_emplace(x);
    }
    return static_cast<int>(values.size());
  }

  int erase(const std::string &p, const Strings &values) {
    for (const std::string &x : values) {
      if (!has(p)) return -1;
      auto &property = properties[key(p)];
      if (property.contains(x)) {
        for (const auto &[q, y] : property[x])
          properties[q][y].erase({key(p), x});
        property.erase(x);
      }
      if (property.empty()) forget(p);
    }
    return 0;
  }

  int destroy(const std::string &p) {
    if (!has(p)) return -1;
    while (has(p) && !properties[key(p)].empty())
      erase(p, {properties[key(p)].begin()->first});
    forget(p);
    return 0;
  }

  void forget(const std::string &p) {
    properties.erase(key(p));
    spelling.erase(key(p));
  }

  int associate(const std::string &p, const std::string &x, const std::string &q,
                const std::string &y) {
    if (key(p) == key(q) || !has(p, x) || !has(q, y)) return -1;
    properties[key(p)][x].insert({key(q), y});
    properties[key(q)][y].insert({key(p), x});
    return 0;
  }

  int dissociate(std::string p, std::string x, std::string q, std::string y) {
    if (p > q) std::swap(p, q), std::swap(x, y);
    if (key(p) == key(q) || !has(q) || !has(p, x)) return -1;
    if (!has(q, y)) return 0;
    properties[key(p)][x].erase({key(q), y});
    properties[key(q)][y].erase({key(p), x});
    return 0;
  }

  Strings values(const std::string &p) const {
    Strings all;
    if (has(p)) {
      for (const auto &[x, links] : properties.at(key(p)))
        all.insert(all.begin(), x);
    }
    return all;
  }

  Pairs links(const std::string &p, const std::string &x) const {
    Pairs all;
    if (!has(p, x)) return all;
    for (const auto &[q, y] : properties.at(key(p)).at(x)) {
      all.insert(all.begin(), {spelling.at(q), y});
    }
    return all;
  }

  Strings selected(const std::string &p, const std::string &x, unsigned op,
                   const std::string &q) const {
    Strings all;
    for (const auto &[name, y] : links(p, x)) {
      if (key(name) != key(q)) continue;
      const bool chosen[] = {y == x, y != x, y<x, y> x, y <= x, y >= x, false};
      if (chosen[op]) all.push_back(y);
    }
    return all;
  }

  std::string printed() const {
    std::string text = "Property List\n";
    for (auto p = properties.rbegin(); p != properties.rend(); ++p) {
      const auto &[name, values] = *p;
      text += "prop = " + spelling.at(name) + " val = " + std::to_string(values.size()) + "\n";
      for (auto v = values.rbegin(); v != values.rend(); ++v) {
        text += "\tval = " + v->first + " asso = " + std::to_string(v->second.size()) + " \n";
        for (const auto &[q, y] : links(name, v->first)) {
          text += "\t\tassociate = " + q + " value = " + y + "\n";
        }
      }
    }
    return text + "End of Property List\n";
  }
};

class ModelTest : public DatabaseTest, public testing::WithParamInterface<unsigned> {};

TEST_P(ModelTest, TheStoreHoldsWhatTheModelHolds) {
  std::mt19937 random(GetParam());
  const auto below = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
  const auto name = [&] {
    std::string s{"abcde"[below(5)], "_Z"[below(2)], '1'};
    if (below(3) == 0) s.pop_back();
    for (char &c : s)
      c = below(2) != 0 ? static_cast<char>(std::toupper(c)) : kzddl::to_lower(c);
    return s;
  };
  // Few values make properties come and go, many make them grow.
  Strings pool(GetParam() % 2 != 0 ? 8 : 120);
  for (std::string &s : pool) {
    for (unsigned n = below(8); n != 0; --n)
      s += "ab\xFF,"[below(4)];
  }
  const auto value = [&] { return pool[below(pool.size())]; };
  /// The same value plain or typed, whatever its type.
  const auto form = [&](const std::string &x) {
    return below(2) != 0 ? x : typed(x, static_cast<char>(below(256)));
  };

  Model model;
  for (int step = 0; step < 4000; ++step) {
    const std::string p = name(), x = value(), q = name(), y = value();
    SCOPED_TRACE(std::to_string(step) + " " + p + " '" + x + "' " + q + " '" + y + "'");
    const unsigned draw = below(12), op = below(7);
    if (draw < 2) {
      const auto add = draw == 0 ? set : set_ts;
      ASSERT_EQ(add(p, {form(x), form(y)}), model.set(p, {x, y}));
    } else if (draw < 3) {
      // One by one the second is missed when the first was the last; at once it is not.
      const bool at_once = below(2) != 0 && model.has(p);
      const int result = at_once ? erase_ts(p, {form(x), form(y)}) : erase(p, {form(x), form(y)});
      const int expected = model.erase(p, {x, y});
      ASSERT_EQ(result, at_once ? 0 : expected);
    } else if (draw < 7) {
      ASSERT_EQ(associate(p, form(x), q, form(y)), model.associate(p, x, q, y));
    } else if (draw < 8) {
      ASSERT_EQ(dissociate(p, form(x), q, form(y)), model.dissociate(p, x, q, y));
    } else if (below(40) == 0) {
      ASSERT_EQ(destroy_property(p.c_str()), model.destroy(p));
    }
    ASSERT_EQ(values_of(p), model.values(p));
    ASSERT_EQ(links_of(p, form(x)), model.links(p, x));
    ASSERT_EQ(selected(p, form(x), op, q), model.selected(p, x, op, q)) << op;
    if (step % 500 != 499) continue;
    LogCapture log;
    print_property_list();
    ASSERT_EQ(log.text(), model.printed());
  }
  init_property_list(nullptr);
  LogCapture log;
  print_property_list();
  EXPECT_EQ(log.text(), Model().printed());
}

INSTANTIATE_TEST_SUITE_P(Seeds, ModelTest, testing::Range(1u, 9u));

}  // namespace
