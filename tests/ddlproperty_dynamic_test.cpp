// Dynamic attributes: when a library is asked, what it is given, and what becomes of its answer.
#include "kzddl/ddlproperty_dynamic.h"

#include <sys/stat.h>

#include <functional>
#include <optional>

#include "support/log_capture.h"
#include "support/property_test.h"

namespace {

using namespace kzddl_test;

const std::string disk = "/dev/null";  // a device that every machine has

/// A call of an entry point.
struct Call {
  std::string path;
  std::string attr;
  odh device;
};

std::vector<Call> calls;
std::function<std::int32_t(const dip &, const std::string &, char ***)> answer;

/// Entry points that differ by address alone.
template <int>
std::int32_t entry(dip record, const char *attr, char ***list) {
  calls.push_back({record.path, attr, *record.odh});
  return answer(record, attr, list);
}

/// Answers any attribute, or only that of `name`, with `value`.
auto answering(const std::string &value, std::optional<std::string> name = {}) {
  return [=](const dip &, const std::string &attr, char ***list) {
    return answer_with(name.value_or(attr), value, list);
  };
}

class Dynamic : public DatabaseTest {
 protected:
  Dynamic() {
    calls.clear();
    answer = answering("new");
  }

  static void add(const std::string &attribute) { add_attribute(attribute), add_library(); }
  static void add_library(const std::string &path = disk) {
    relate("DISK", path, "LIBNAME", "lib");
    relate("LIBNAME", "lib", "GET_DYNAMIC_ATTR_ENTRY", address(entry<0>));
  }
  static void add_attribute(const std::string &name, const std::string &path = disk) {
    relate("DISK", path, "DYNAMIC", name);
  }
};

TEST_F(Dynamic, TheLibraryIsAskedAndItsAnswerStored) {
  add("STATE");
  answer = answering("on, off,on ");
  EXPECT_EQ(linked("DISK", disk, "STATE"), (Strings{"on", "off"}));
  EXPECT_EQ(values_of("STATE"), (Strings{"on", "off"}));
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].path, disk);
  EXPECT_EQ(calls[0].attr, "STATE");
  struct stat node;
  ASSERT_EQ(stat(disk.c_str(), &node), 0);
  EXPECT_EQ(calls[0].device.devname, disk);
  EXPECT_EQ(calls[0].device.dev, node.st_rdev);
  EXPECT_EQ(calls[0].device.blkdev, node.st_rdev);
  EXPECT_EQ(calls[0].device.zero, 0u);
  linked("DISK", disk, "STATE");
  EXPECT_EQ(calls.size(), 2u) << "each look-up asks again";
}

TEST_F(Dynamic, NobodyIsAskedForAnythingElse) {
  add_attribute("STATE");
  relate("DISK", disk, "STATE", "stored");
  EXPECT_EQ(linked("DISK", disk, "STATE"), Strings{"stored"}) << "no library";
  add_library();
  EXPECT_EQ(linked("disk", disk, "STATE"), Strings{"stored"}) << "not exactly DISK";
  EXPECT_EQ(links_of("disk", disk).size(), 3u);
  EXPECT_EQ(linked("DISK", disk, "LIBNAME"), Strings{"lib"}) << "not dynamic";
  EXPECT_EQ(linked("DISK", disk, "STAT"), Strings{}) << "shorter than the registered name";
  relate("DISK", "/dev/zero", "STATE", "stored too");
  EXPECT_EQ(linked("DISK", "/dev/zero", "STATE"), Strings{"stored too"}) << "not of this disk";
  EXPECT_EQ(links_of("DISK", "/dev/zero").size(), 1u);
  EXPECT_EQ(selected("DISK", disk, KZDDL_ASSO_DIFFERENT, "STATE"), Strings{"stored"});
  EXPECT_TRUE(calls.empty());
}

TEST_F(Dynamic, AnAttributesOwnEntryComesBeforeTheLibrarys) {
  add_library();
  add_attribute("ab");
  add_attribute("abc");
  add_attribute("b");
  relate("DYNAMIC", "abc", "GET_DYNAMIC_ATTR_ENTRY", address(entry<1>));
  ASSERT_EQ(set("abcd", {"never linked"}), 1);
  EXPECT_EQ(linked("DISK", disk, "abcd"), Strings{});
  ASSERT_EQ(calls.size(), 1u) << "the first in descending order whose name begins the request";
  EXPECT_EQ(calls[0].attr, "abc");
  EXPECT_EQ(linked("DISK", disk, "abc"), Strings{"new"});
  EXPECT_EQ(linked("DISK", disk, "abX"), Strings{"new"});
  EXPECT_EQ(calls.back().attr, "abX") << "the library is asked for what was requested";
}

TEST_F(Dynamic, AllAttributesAreFetchedForAllLinks) {
  add_attribute("A");
  add_attribute("B");
  add_attribute("C");
  relate("DYNAMIC", "B", "GET_DYNAMIC_ATTR_ENTRY", address(entry<1>));
  EXPECT_EQ(links_of("DISK", disk), (Pairs{{"DYNAMIC", "C"}, {"DYNAMIC", "B"}, {"DYNAMIC", "A"}}));
  EXPECT_TRUE(calls.empty()) << "nobody knows C, which comes first";
  add_library();
  EXPECT_EQ(links_of("DISK", disk), (Pairs{{"LIBNAME", "lib"},
                                           {"DYNAMIC", "C"},
                                           {"DYNAMIC", "B"},
                                           {"DYNAMIC", "A"},
                                           {"C", "new"},
                                           {"B", "new"},
                                           {"A", "new"}}));
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].attr + calls[1].attr + calls[2].attr, "CBA");
}

TEST_F(Dynamic, AllLinksTakeTheReservedNamesExactly) {
  relate("DISK", disk, "Dynamic", "A");
  relate("DISK", disk, "LibName", "lib");
  relate("LIBNAME", "lib", "GET_DYNAMIC_ATTR_ENTRY", address(entry<0>));
  EXPECT_EQ(links_of("DISK", disk).size(), 2u);
  EXPECT_TRUE(calls.empty());
  EXPECT_EQ(linked("DISK", disk, "A"), Strings{"new"}) << "a look-up of one does not";
}

TEST_F(Dynamic, OldValuesGoWithTheirLastLink) {
  add("STATE");
  for (const char *old : {"old1", "old2", "shared"})
    relate("DISK", disk, "STATE", old);
  relate("DISK", "/dev/zero", "STATE", "shared");
  answer = answering("new1,new2");
  EXPECT_EQ(linked("DISK", disk, "STATE"), (Strings{"new2", "new1"}));
  EXPECT_EQ(values_of("STATE"), (Strings{"shared", "new2", "new1"}));
  EXPECT_EQ(links_of("STATE", "shared"), (Pairs{{"DISK", "/dev/zero"}}));
}

TEST_F(Dynamic, AValueReportedAgainStaysWhereItIs) {
  add("STATE");
  const std::string binary = typed(std::string("a\0,b", 4), 7);
  answer = answering(binary + "," + typed("x", 1));
  EXPECT_EQ(linked("DISK", disk, "STATE"), (Strings{"x", std::string("a\0,b", 4)}));
  const char **before = nullptr;
  const char **after = nullptr;
  ASSERT_EQ(get_property_ts("STATE", &before), 2);
  answer = answering(typed("x", 2) + "," + binary);
  EXPECT_EQ(linked("DISK", disk, "STATE").size(), 2u);
  ASSERT_EQ(get_property_ts("STATE", &after), 2);
  EXPECT_EQ(take(2, before)[1], after[1]);
  EXPECT_EQ(take(2, after)[0][1], 2) << "another type is another value";
}

TEST_F(Dynamic, ArgumentsMayPointAtWhatTheFetchRemoves) {
  add("STATE");
  relate("DISK", disk, "STATE", "old");
  relate("OTHER", "x", "STATE", "old");
  const char **names = nullptr;
  const char **values = nullptr;
  ASSERT_EQ(get_asso_ts("STATE", "old", &names, &values), 2);
  const char *path = take(2, values)[1];  // the stored disk
  ASSERT_STREQ(take(2, names)[1], "DISK");
  ASSERT_EQ(get_asso_ts("OTHER", "x", &names, &values), 1);
  const char *stored_name = take(1, names)[0];
  take(1, values);
  ASSERT_EQ(erase("OTHER", {"x"}), 0);
  ASSERT_EQ(get_asso_val_ts("DISK", path, stored_name, &values), 1);  // removes and remakes STATE
  EXPECT_EQ(payloads(1, values), Strings{"new"});
}

TEST_F(Dynamic, NoOutputKeepsPointingAtAFreedArray) {
  add("STATE");
  relate("DISK", disk, "STATE", "old");
  answer = [](const dip &, const std::string &, char ***) { return destroy_property("STATE"), 1; };
  const char *before[] = {"before"};
  const char **names = before;
  const char **values = before;
  EXPECT_EQ(get_asso_val_ts("DISK", disk.c_str(), "STATE", &values), -1);
  EXPECT_EQ(values, nullptr);
  values = before;
  answer = [](const dip &, const std::string &, char ***) { return destroy_property("DISK"), 1; };
  EXPECT_EQ(get_asso_ts("DISK", disk.c_str(), &names, &values), -1);
  EXPECT_EQ(names, nullptr);
  EXPECT_EQ(values, nullptr);
}

std::int32_t empty_list(const dip &, const std::string &, char ***list) {
  *list = static_cast<char **>(nv_alloc(sizeof(char *)));
  (*list)[0] = nullptr;
  return 0;
}

std::int32_t list_of_junk(const dip &, const std::string &, char ***list) {
  *list = static_cast<char **>(nv_alloc(2 * sizeof(char *) + 5));
  (*list)[0] = reinterpret_cast<char *>(*list + 2);
  (*list)[1] = nullptr;
  std::strcpy((*list)[0], "junk");
  return 0;
}

const std::string prefix = "ddl_get_dynamic_attr: ";

TEST_F(Dynamic, AFailureIsLoggedAndLeavesWhatIsStored) {
  const std::string no_name = "lib /dev/null get_name() error -1 for ";
  const std::string no_function =
      "no get_dynamic_attr function defined for library lib for device /dev/null\n";
  std::string short_address = payload_of(address(entry<0>).c_str());
  while (short_address.back() == '\0')
    short_address.pop_back();
  const struct {
    std::string entry;  ///< what is registered; empty: nothing
    decltype(answer) reply;
    std::string message;  ///< behind the prefix; empty: none
  } cases[] = {
      {"", {}, "can't find get_dynamic_attr entry for library lib for device /dev/null\n"},
      {address<void>(nullptr), {}, no_function},
      {typed(""), {}, no_function},
      {typed(short_address), [](auto &&...) { return 1; }, ""},
      {address(entry<0>), [](auto &&...) { return 1; }, ""},
      {address(entry<0>), [](auto &&...) { return 0; }, no_name + "\n"},
      {address(entry<0>), empty_list, no_name + "\n"},
      {address(entry<0>), list_of_junk, no_name + "junk\n"},
      {address(entry<0>), answering("new", "B"),
       "lib /dev/null requested attr name don't match returned attr name B\n"},
  };
  for (const auto &[entry_address, reply, message] : cases) {
    SCOPED_TRACE(message);
    init_property_list(nullptr);
    add_attribute("A");
    relate("DISK", disk, "A", "stored");
    relate("DISK", disk, "LIBNAME", "lib");
    if (!entry_address.empty()) relate("LIBNAME", "lib", "GET_DYNAMIC_ATTR_ENTRY", entry_address);
    answer = reply;
    LogCapture log;
    EXPECT_EQ(linked("DISK", disk, "A"), Strings{"stored"});
    EXPECT_EQ(log.text(), message.empty() ? "" : prefix + message);
  }
}

TEST_F(Dynamic, TheDeviceMustExistAndItsPathMustFit) {
  const auto message_for = [](const std::string &path) {
    add_attribute("A", path);
    add_library(path);
    LogCapture log;
    linked("DISK", path, "A");
    return log.text();
  };
  EXPECT_EQ(message_for("/nonexistent"), prefix + "Could not do stat on path /nonexistent\n");
  const auto path_of = [](std::size_t length) { return std::string(length - 8, '/') + "dev/null"; };
  const std::string path = path_of(KZDDL_DIP_PATH_SIZE - 1);
  EXPECT_EQ(message_for(path), "");
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].path, path);
  const std::string longer = path_of(KZDDL_DIP_PATH_SIZE);
  EXPECT_EQ(message_for(longer), prefix + "No room in dip object for disk path " + longer + "\n");
  EXPECT_EQ(calls.size(), 1u);
}

TEST_F(Dynamic, CallsAreSerialisedWhenTheHandlersFlagsAskForIt) {
  static Handler handler;
  add_attribute("A");
  add_attribute("B");
  add_library();
  relate("LIBNAME", "lib", "GET_DLL_HANDLER", address(handler.record));
  relate("DYNAMIC", "B", "GET_DYNAMIC_ATTR_ENTRY", address(entry<1>));  // without a handler
  static int trylock_result;
  answer = [](const dip &, const std::string &attr, char ***list) {
    trylock_result = pthread_mutex_trylock(&handler.mutex);
    if (trylock_result == 0) pthread_mutex_unlock(&handler.mutex);
    set("FREE", {"x"});  // no lock of the database is held
    return answer_with(attr, "new", list);
  };
  for (const auto &[flags, expected] :
       {std::pair{0x00, 0}, {0xEF, 0}, {0x10, EBUSY}, {0xFF, EBUSY}}) {
    handler.record[KZDDL_HANDLER_FLAGS] = static_cast<unsigned char>(flags);
    EXPECT_EQ(linked("DISK", disk, "A"), Strings{"new"});
    EXPECT_EQ(trylock_result, expected) << flags;
    EXPECT_EQ(linked("DISK", disk, "B"), Strings{"new"});
    EXPECT_EQ(trylock_result, 0);
  }
  EXPECT_EQ(pthread_mutex_trylock(&handler.mutex), 0) << "released after the call";
  pthread_mutex_unlock(&handler.mutex);
}

}  // namespace
