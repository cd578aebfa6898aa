// The property store: what is kept, in which order, and what is left when something fails.
#include "kzddl/ddlproperty.h"

#include <set>

#include "support/failing_malloc.h"
#include "support/log_capture.h"
#include "support/property_test.h"

namespace {

using namespace kzddl_test;

const std::string longest(KZDDL_TS_MAX_PAYLOAD, 'v');
const std::string too_long(KZDDL_TS_MAX_PAYLOAD + 1, 'v');

// A database cannot be taken away again: this runs in a process of its own.
TEST(NoDatabase, FailsWhateverTakesAProperty) {
  EXPECT_EQ(is_proplist_initialized(), 0);
  const char **array = nullptr;
  const int results[] = {create_property("P", 0, 0, 0),
                         set("P", {"x"}),
                         set_ts("P", {typed("x")}),
                         get_property("P", &array),
                         get_property_ts("P", &array),
                         erase("P", {"x"}),
                         destroy_property("P"),
                         set_asso("P", "x", "Q", "y"),
                         get_asso("P", "x", &array, &array),
                         get_asso_val("DISK", "x", "Q", &array),
                         select_asso_val("P", "x", KZDDL_ASSO_EQUAL, "Q", &array)};
  for (const int result : results)
    EXPECT_EQ(result, -1) << &result - results;
  EXPECT_EQ(delete_asso("P", "x", "Q", "y"), 0);
  EXPECT_EQ(array, nullptr);
  LogCapture log;
  print_property_list();
  print_list();
  EXPECT_EQ(log.text(),
            "Property List\nEnd of Property List\n"
            "Property List\nNothing in list.\nEnd of Property List\n");
  init_property_list(nullptr);
  EXPECT_EQ(is_proplist_initialized(), 1);
}

using Store = DatabaseTest;

TEST_F(Store, CountsEntriesAndKeepsTheFirstOfEqualValues) {
  EXPECT_EQ(set_ts("P", {typed("v", 3), typed("v", 5), "v", "w"}), 4);
  const char **array = nullptr;
  ASSERT_EQ(get_property_ts("P", &array), 2);
  const auto entries = take(2, array);
  EXPECT_EQ(std::string(entries[0], 5), std::string("\x1B\0\1w\0", 5));  // plain text is type 0
  EXPECT_EQ(std::string(entries[1], 5), std::string("\x1B\3\1v\0", 5));
  EXPECT_EQ(set_ts("P", {typed(std::string("v\0z", 3))}), 1);
  EXPECT_EQ(values_of("P"), (Strings{"w", std::string("v\0z", 3), "v"}));
  ASSERT_EQ(get_property("P", &array), 3);
  EXPECT_STREQ(take(3, array)[2], "v");
}

TEST_F(Store, EmptyArrays) {
  EXPECT_EQ(set("P", {}), 0);
  EXPECT_EQ(erase("P", {}), 0) << "nothing is asked";
  EXPECT_EQ(destroy_property("P"), -1);
  EXPECT_EQ(set_ts("P", {}), 0) << "but this makes the property";
  EXPECT_EQ(values_of("P"), Strings{});
  const char *const none[] = {nullptr};
  EXPECT_EQ(delete_property_ts("P", none), 0) << "and this removes one without values";
  EXPECT_EQ(delete_property_ts("P", none), -1);
}

TEST_F(Store, PlainTextThatIsNoValueIsRefused) {
  EXPECT_EQ(set("P", {longest}), 1);
  EXPECT_EQ(set("P", {"a", too_long, "b"}), -1);
  EXPECT_EQ(values_of("P"), (Strings{longest, "a"})) << "one by one, until one fails";
  EXPECT_EQ(set_ts("Q", {"a", too_long}), -1);
  EXPECT_EQ(destroy_property("Q"), -1) << "all or nothing";
  EXPECT_EQ(erase("P", {too_long}), -1);
  const char **array = nullptr;
  EXPECT_EQ(set_asso("P", too_long.c_str(), "Q", "y"), -1);
  EXPECT_EQ(delete_asso("P", "a", "Q", too_long.c_str()), -1);
  EXPECT_EQ(get_asso("DISK", too_long.c_str(), &array, &array), -1);
  EXPECT_EQ(get_asso_val("DISK", too_long.c_str(), "P", &array), -1);
  EXPECT_EQ(select_asso_val("P", too_long.c_str(), 0, "P", &array), -1);
}

TEST_F(Store, CreatedPropertiesKeepWhatTheyAreGiven) {
  const std::vector<int> widths = {0, 0, 2, 2, 4, 4, 4, 4, 0, 0};
  for (int type = 0; type < 10; ++type) {
    const std::string name = "T" + std::to_string(type);
    ASSERT_EQ(create_property(name.c_str(), type, 0xFFFF'FFFF, 7), 0);
    EXPECT_EQ(values_of(name), Strings{});
    ASSERT_EQ(set(name, {"v"}), 1);
    const kzddl::pnode *node = property_node(name);
    EXPECT_EQ(node->type, type);
    EXPECT_EQ(node->width, widths[type]) << type;
    EXPECT_EQ(node->attr1, 0xFFFF'FFFF);
    EXPECT_EQ(node->attr2, 7u);
    EXPECT_EQ(create_property(("t" + name.substr(1)).c_str(), type, 0, 0), -1) << "it exists";
  }
}

TEST_F(Store, OpsTableIsAskedForEachNewNode) {
  static std::string asked;
  static std::int32_t levels = 1;
  ddl_prop_table ops = {
      [](const char *name) { return asked += name, std::int32_t{42}; },
      [](std::int32_t conv) { return asked += ":v" + std::to_string(conv), levels; },
      [](std::int32_t conv) { return asked += ":a" + std::to_string(conv), levels; },
  };
  ASSERT_EQ(set("gone", {"x"}), 1);
  init_property_list(&ops);
  EXPECT_EQ(ddl_prop_ops, &ops);
  EXPECT_EQ(values_of("gone"), Strings{}) << "a new database is empty";
  EXPECT_EQ(set("P", {"x", "x"}), 2);
  EXPECT_EQ(asked, "P:v42:a42");
  levels = 33;
  EXPECT_EQ(set("P", {"y"}), 1) << "a value that cannot be made is left out";
  EXPECT_EQ(values_of("P"), Strings{"x"});
  EXPECT_EQ(set("Q", {"y"}), -1);
  EXPECT_EQ(create_property("Q", 0, 0, 0), -1);
  init_property_list(nullptr);
  EXPECT_EQ(ddl_prop_ops, &ddl_prop_def_ops);
}

TEST_F(Store, PrintsTheStructureOfTheList) {
  for (const char *name : {"beta", "Alpha", "gamma", "empty"})
    ASSERT_EQ(create_property(name, 0, 0, 0), 0);
  LogCapture structure;
  print_list();
  const std::string text = structure.text();
  EXPECT_EQ(text.find("Property List\nLevel 4 list\n"), 0u);
  EXPECT_NE(text.find("Level 0 list\n"
                      "\tElement = 0 Value = Alpha\n"
                      "\tElement = 1 Value = beta\n"
                      "\tElement = 2 Value = empty\n"
                      "\tElement = 3 Value = gamma\n"
                      "End of Property List\n"),
            std::string::npos);
}

TEST_F(Store, Costs) {
  const char **names = nullptr;
  const char **values = nullptr;
  const auto allocations_of = [&](auto work) {
    const CountMalloc counter;
    work();
    std::free(std::exchange(names, nullptr));
    std::free(std::exchange(values, nullptr));
    return counter.count();
  };
  for (int i = 0; i < 50; ++i)
    relate("P", "x", "Q", std::to_string(i));
  EXPECT_EQ(allocations_of([&] { get_property("Q", &values); }), 1);
  EXPECT_EQ(allocations_of([&] { get_asso("P", "x", &names, &values); }), 2);
  EXPECT_EQ(allocations_of([&] { get_asso_val("P", "x", "Q", &values); }), 1);
  EXPECT_EQ(allocations_of([&] { set("P", {"y"}); }), 3) << "a node, its list, its place";
  EXPECT_EQ(allocations_of([&] { erase("P", {"x"}), destroy_property("Q"); }), 0);
}

TEST_F(Store, WithoutMemoryAValueIsLeftOut) {
  for (int n = 1; n <= 6; ++n) {  // for each value its node, its list, and its place
    init_property_list(nullptr);
    ASSERT_EQ(set("P", {"w"}), 1);
    {
      const FailMalloc fail(n);
      EXPECT_EQ(set_ts("P", {"x", "y"}), 2);
    }
    EXPECT_EQ(values_of("P"), n <= 3 ? (Strings{"y", "w"}) : (Strings{"x", "w"})) << n;
  }
}

TEST_F(Store, WithoutMemoryForAnIndexAPropertyStillHoldsItsValues) {
  Strings values;
  for (char c = 'h'; c >= 'A'; --c)
    values.push_back({c});
  ASSERT_EQ(set_ts("P", {}), 0);
  for (const std::string &value : values) {
    FailMalloc fail(4);  // after the value node, its list, and its place in the property's list
    ASSERT_EQ(set("P", {value}), 1);
  }
  EXPECT_EQ(values_of("P"), values);
  EXPECT_EQ(erase("P", {values.begin() + 1, values.end()}), 0);
  EXPECT_EQ(values_of("P"), Strings{values.front()});
}

TEST_F(Store, PayloadsCannotBeChosenToHashAlike) {
  // Changes to one word that changes to the next one undo, where a hash only mixes upwards.
  std::set<std::uint32_t> hashes;
  for (unsigned choice = 0; choice < 1024; ++choice) {
    std::string payload(160, 'x');
    for (unsigned bit = 0; bit < 10; ++bit) {
      if ((choice >> bit & 1) == 0) continue;
      for (const unsigned at : {7, 15, 11})  // the top bits of both words, and of a half
        payload[16 * bit + at] ^= '\x80';
    }
    ASSERT_EQ(set("P", {typed(payload)}), 1);
  }
  const char **array = nullptr;
  const int n = get_property_ts("P", &array);
  for (const char *value : take(n, array))
    hashes.insert(value_node(value)->hash);
  EXPECT_GT(hashes.size(), 1000u);
}

TEST_F(Store, WrongCountersStopTheProcess) {
  relate("P", "x", "Q", "y");
  const char **array = nullptr;
  const int n = get_property_ts("P", &array);
  kzddl::vnode *value = value_node(take(n, array)[0]);
  kzddl::pnode *property = property_node("P");

  for (const int wrong : {2, 0}) {
    property->nval = wrong;
    EXPECT_DEATH(get_property_ts("P", &array), "ddlproperty.cpp.*`pnode->nval == num_elements'");
    EXPECT_DEATH(destroy_property("P"), "ddlproperty.cpp.*`n == pnode->nval'");
    EXPECT_DEATH(print_property_list(), "ddlproperty.cpp.*`valn == pnode->nval'");
  }
  property->nval = 1;
  ++value->nasso;
  EXPECT_DEATH(links_of("P", "x"), "ddlproperty_links.cpp.*`num_elements == vnode->nasso'");
  EXPECT_DEATH(erase("P", {"x"}), "ddlproperty_store.cpp.*`num_elements == vnode->nasso'");
  EXPECT_DEATH(print_property_list(), "ddlproperty.cpp.*`asson == vnode->nasso'");
  --value->nasso;
}

}  // namespace
