// Short memory: every exported operation that allocates, with its first allocation failing, then
// its second, and so on until it succeeds, by every way a command can travel. (Single commands:
// command_wire_test.)
#include <functional>

#include "kzddl/ddl_name_value_api.h"
#include "kzddl/ddlts.h"
#include "support/disk_test.h"
#include "support/failing_malloc.h"
#include "support/log_capture.h"
#include "support/property_test.h"

namespace kzddl_test {
namespace {

using std::bind_front;

struct Row {
  std::string name;
  /// Calls the operation and says what came of it.
  std::function<std::string()> call;
  /// That text where the first allocation failed, where the second did, and so on; the last one
  /// holds from there on. Empty: nothing is allocated.
  Strings failures;
  Strings ia64;  ///< the same by the legacy request; empty: as above
};

/// An output of any type, marked beforehand.
struct Output {
  static inline char mark = 0;
  void *block = &mark;

  template <class T>
  operator T **() {
    return reinterpret_cast<T **>(&block);
  }
  std::string text(void (*release)(void *)) const {
    if (block == &mark) return " untouched";
    if (block == nullptr) return " null";
    release(block);
    return " set";
  }
};

/// What `call` returns, and what it leaves in its last arguments, none to two; released.
template <class Call>
Row row(const std::string &name, Call call, const Strings &failures, const Strings &ia64 = {},
        void (*release)(void *) = std::free) {
  const auto run = [call, release] {
    Output one, two;
    if constexpr (std::is_invocable_v<Call>) {
      return std::to_string(call());
    } else if constexpr (std::is_invocable_v<Call, Output &>) {
      const int result = call(one);
      return std::to_string(result) + one.text(release);
    } else {
      const int result = call(one, two);
      return std::to_string(result) + one.text(release) + two.text(release);
    }
  };
  return {name, run, failures, ia64};
}

Row nv(const std::string &name, auto call, const Strings &failures = {"-1 untouched"}) {
  return row(name, call, failures, {}, nv_free);
}

template <class Call>
Row identity(const std::string &name, Call call, const Strings &failures, const Strings &ia64) {
  const auto run = [call] {
    char id[KZDDL_LUN_ID_SIZE] = "untouched";
    const int error = call(id);
    return std::to_string(error) + " " + id;
  };
  return {name, run, failures, ia64};
}

constexpr char *end = nullptr;
constexpr char null_device[] = "/dev/null";  // a device that every machine has

std::int32_t get_attribute(dip /*disk*/, const char *attr, char ***list) {
  char *pair = nullptr;  // not answer_with(): its allocations may fail too
  if (nv_set_value(&pair, attr, "stored") != 0) return 1;
  const bool made = nv_create_list(list, pair, end) == 1;
  nv_free(pair);
  return made ? 0 : 1;
}

class Allocation : public WayTest {
 protected:
  Allocation() {
    const auto disk =
        std::make_shared<sim::Disk>(sim::DiskSpec{.serial = "SN-1",
                                                  .naa = {0x60, 0x0A, 0x0B, 0x80, 1, 2, 3, 4},
                                                  .groups = {{.id = 1, .ports = {1}}}});
    host.add({.name = node, .number = number, .device = disk});
    host.add({.name = "/dev/kz/jox/m0", .number = 0x4321, .device = disk});
    host.add({.name = "/dev/kz/rjox/m0", .number = number, .device = disk});
  }

  static void fill_database() {
    init_property_list(nullptr);
    relate("P", "x", "Q", "y");
    relate("DISK", node, "JOX_DEVICE", "m0");
    relate("DISK", null_device, "DYNAMIC", "A");
    relate("DISK", null_device, "LIBNAME", "lib");
    relate("DISK", null_device, "A", "stored");
    relate("LIBNAME", "lib", "GET_DYNAMIC_ATTR_ENTRY", address(get_attribute));
  }

  static void empty_caches() {
    init_property_list(nullptr);
    while (disk_geom_entry *entry = disk_geom_headp) {
      disk_geom_headp = entry->next;
      std::free(entry);
    }
  }

  /// The whole database, whose counters are asserted on the way.
  static std::string printed() {
    const LogCapture log;
    print_property_list();
    return log.text();
  }

  void expect_failures(const Row &row);
  std::vector<Row> commands();
  std::vector<Row> blocks();
  std::vector<Row> database();
};
INSTANTIATE_TEST_SUITE_P(, Allocation, every_way, way_name);

void Allocation::expect_failures(const Row &row) {
  const Strings &failures = GetParam().ia64 && !row.ia64.empty() ? row.ia64 : row.failures;
  std::size_t n = 1;
  for (bool failed = true; failed; ++n) {
    SCOPED_TRACE(row.name + " " + std::to_string(n));
    fill_database();
    const std::string before = printed();
    std::string text;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
      const FailMalloc fail(static_cast<long>(n));
      text = row.call();
      failed = fail.happened();
    }
    const std::string messages =
        testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    if (printed() != before) text += " changed";
    if (!messages.empty()) text += ": " + messages;
    EXPECT_EQ(host.open_descriptors(), 0);
    empty_caches();
    EXPECT_EQ(live_blocks(), 0);
    if (!failed) break;
    ASSERT_FALSE(failures.empty()) << text;
    EXPECT_EQ(text, failures[std::min(n, failures.size()) - 1]);
  }
  EXPECT_GT(n, failures.size()) << row.name << " allocates less";
}

/// Those that send more than one command, or none. (The others: command_wire_test.)
std::vector<Row> Allocation::commands() {
  static unsigned char data[9 * 512];
  static disk_geom geom;
  const Strings failed{"-1"}, no_keys{"4 null"}, geometry{"-1", "12"};
  const Strings id{"12 untouched", "0 fallback"}, cabinet{"-1 untouched", "-1 "};
  const Strings old_id{"12 untouched", "12 untouched", "0 fallback"};
  const Strings old_cabinet{"-1 untouched", "-1 untouched", "-1 "};
  const Strings by_mode_page{"0 set", "0 set",
                             "0 set: do_convert_to_rcr_oper_parm: unable to allocate memory\n"};
  odh *p = &path;
  constexpr int probe = KZDDL_DISKIO_PROBE, read = KZDDL_DISKIO_READ, write = KZDDL_DISKIO_WRITE;
  const auto page_info = [](unsigned char **out) {
    int length = -7;
    const int result = get_mode_page_info(data, 8, out, &length);
    EXPECT_EQ(length == -7, result != 0);
    return result;
  };
  const auto lun_id = [p](char *text) {
    unsigned char type = 0;
    return get_lun_id(p, 0x00, text, &type, "fallback");
  };
  return {
      row("do_diskio", bind_front(do_diskio, p, 0, 9, data, probe), failed),
      row("do_diskio_32", bind_front(do_diskio_32, node, 0, 1, data, read), failed),
      row("do_diskio_35", bind_front(do_diskio_35, p, 0, 1, data, write), failed),
      row("do_diskio_chk_rsvn", bind_front(do_diskio_chk_rsvn, p), failed),
      row("get_mode_page_info", page_info, {"12 untouched"}),
      row("do_pgr_in", bind_front(do_pgr_in, p, 0), no_keys),
      row("do_pgr_in_32", bind_front(do_pgr_in_32, node, 0), no_keys),
      row("do_pgr_in_35", bind_front(do_pgr_in_35, p, 0), no_keys),
      identity("get_lun_id", lun_id, id, old_id),
      identity("get_cabinet_id", bind_front(get_cabinet_id, p), cabinet, old_cabinet),
      row("get_geometry_info", bind_front(get_geometry_info, node, &geom), geometry),
      row("gen_get_geometry_info", bind_front(gen_get_geometry_info, path, &geom), geometry),
      row("do_operating_parameters", bind_front(do_operating_parameters, p), by_mode_page),
  };
}

std::vector<Row> Allocation::blocks() {
  static const unsigned char bytes[64] = {};
  static const auto equal = [](const void *, const void *) { return 0; };
  static sl_list *items = sl_create(4, 0.5F, equal);
  const auto told = [](const std::string &name, auto call) {
    return row(name, call, {"-1 null: " + name + ": unable to allocate memory\n"});
  };
  const auto append_list = [](char ***list) {
    char one[] = "a=1";
    char *old[20];  // more than fit the place on the stack
    std::fill(old, old + 19, &one[0]);
    old[19] = nullptr;
    return nv_append_list(list, old, "b=2", end);
  };
  const auto print = [] {
    char one[] = "a=b,c";
    char *const pairs[] = {one, nullptr};
    const LogCapture log;
    return nv_print(pairs), 0;
  };
  const auto insert = [] {
    static char element;
    if (sl_insert(items, &element) == nullptr) return items->level - 1;
    return sl_delete(items, &element);
  };
  const Strings no_text{"-1 null"};
  return {
      told("do_td_create_e0", bind_front(do_td_create_e0, bytes, bytes, 0)),
      told("do_td_create_e1", bind_front(do_td_create_e1, bytes, bytes, 0)),
      told("do_td_create_e4", bind_front(do_td_create_e4, 1, 3, 8, bytes, 0)),
      told("do_convert_to_rcr_oper_parm", bind_front(do_convert_to_rcr_oper_parm, bytes, 64)),
      told("do_convert_mode_sense_oper_parm_to_rcr_oper_parm",
           bind_front(do_convert_mode_sense_oper_parm_to_rcr_oper_parm, bytes, 64)),
      row("do_ts_build", bind_front(do_ts_build, 1, 2, "ab"), no_text),
      row("ts_build", bind_front(ts_build, 1, 2, "ab"), no_text),
      row("do_ts_tostring", bind_front(do_ts_tostring, "\x1B\1\2ab"), no_text),
      row("ts_tostring", bind_front(ts_tostring, "plain"), no_text),
      row("alloc_vid_buffer", [](char **out) { return alloc_vid_buffer(out), 0; },
          {"0 null: malloc for VID failed\n"}),
      row("alloc_pid_buffer", [](char **out) { return alloc_pid_buffer(out), 0; },
          {"0 null: malloc for PID failed\n"}),
      nv("nv_alloc", [](void **out) { return *out = nv_alloc(8), 0; }, {"0 null"}),
      nv("nv_create_list", [](char ***l) { return nv_create_list(l, "a=1", "b=2", end); }),
      nv("nv_append_list", append_list),
      nv("nv_set_value", [](char **s) { return nv_set_value(s, "n", "x"); }),
      nv("nv_set_mult_value", [](char **s) { return nv_set_mult_value(s, "n", "x", "y", end); }),
      nv("nv_append_value", [](char **s) { return nv_append_value(s, "n=x", "y", end); }),
      nv("nv_get_name", bind_front(nv_get_name, "n=x")),
      nv("nv_get_value", bind_front(nv_get_value, "n=x")),
      nv("nv_get_value, typed", bind_front(nv_get_value, "n=\x1B\0\0")),
      row("nv_print", print, {"0"}),
      row("sl_create", [] { return sl_destroy(sl_create(4, 0.5F, equal)); }, {"-1"}),
      row("sl_insert", insert, {"-1"}),
  };
}

std::vector<Row> Allocation::database() {
  static const char *const values[] = {"v", "w", nullptr};
  /// A fetch that fails: at its own allocations, and at those of the library it asks.
  const auto fetch = [](const std::string &found, const std::string &not_collected) {
    const std::string said = found + ": ddl_get_dynamic_attr: ";
    const std::string room = said + "Unable to obtain storage for ";
    const std::string error = said + "lib /dev/null get_";
    return Strings{room + "dip object for disk path /dev/null\n",
                   room + "odh object for disk path /dev/null\n",
                   found,
                   found,
                   error + "name() error -1 for A=stored\n",
                   error + "value() error -1 for A=stored\n",
                   found,
                   not_collected};
  };
  const auto geometry = [](disk_geom **cached) { return ddl_get_geometry(node, cached, 0); };
  const auto geometry_attribute = [](char ***list) {
    dip disk{};
    std::strcpy(disk.path, node);
    return get_dynamic_geometry(disk, "DISK_GEOMETRY", list);
  };
  const auto keep = [](void *) {};
  const auto initialize = [] { return init_property_list(nullptr), is_proplist_initialized(); };
  const auto print = [] { return printed().find("are left out") != std::string::npos; };
  const Strings none{"-1 untouched"}, not_found{"0 untouched"}, no_links{"-1 untouched untouched"};
  const Strings partly{"-1", "-1", "-1", "2 changed"};
  const Strings no_geometry{"1 untouched",
                            "1 untouched: get_dynamic_geometry:Memory allocation failed \n",
                            "1 untouched"};
  const Strings fetched = fetch("1 set", "-1 null");
  Strings all_fetched = fetch("3 set set", "-1 null null");
  all_fetched.insert(all_fetched.begin(), "3 set set");  // the copies of the attributes' names
  return {
      row("init_property_list", initialize, {"0 changed"}),
      row("create_property", bind_front(create_property, "NEW", 0, 0, 0), {"-1"}),
      row("set_property", bind_front(set_property, "NEW", values), partly),
      row("set_property_ts", bind_front(set_property_ts, "NEW", values), partly),
      row("get_property", bind_front(get_property, "P"), not_found),
      row("get_property_ts", bind_front(get_property_ts, "P"), not_found),
      row("get_asso_val", bind_front(get_asso_val, "P", "x", "Q"), none),
      row("get_asso_val_ts", bind_front(get_asso_val_ts, "P", "x", "Q"), none),
      row("select_asso_val", bind_front(select_asso_val, "P", "x", 1, "Q"), none),
      row("select_asso_val_ts", bind_front(select_asso_val_ts, "P", "x", 1, "Q"), none),
      row("get_asso", bind_front(get_asso, "P", "x"), no_links),
      row("get_asso_ts", bind_front(get_asso_ts, "P", "x"), no_links),
      row("get_asso_val, fetched", bind_front(get_asso_val, "DISK", null_device, "A"), fetched),
      row("get_asso, fetched", bind_front(get_asso, "DISK", null_device), all_fetched),
      row("print_property_list", print, {"1"}),
      row("ddl_get_geometry", geometry, no_geometry, {}, keep),
      nv("get_dynamic_geometry", geometry_attribute, no_geometry),
  };
}

TEST_P(Allocation, EachFailureInTurn) {
  unsetenv("KZ_DEBUG_FILE");
  for (const auto &rows : {commands(), blocks(), database()}) {
    for (const Row &row : rows)
      expect_failures(row);
  }
}

using AllocationDeathTest = DatabaseTest;

TEST_F(AllocationDeathTest, ALinkIsNeverHalfMade) {
  ASSERT_EQ(set("A", {"x"}), 1);
  ASSERT_EQ(set("B", {"y"}), 1);
  const auto link_failing = [](int n) {
    const FailMalloc fail(n);
    associate("A", "x", "B", "y");
  };
  EXPECT_DEATH(link_failing(1), "ddlproperty_asso.cpp.*Assertion `0' failed");
  EXPECT_DEATH(link_failing(2), "`sl_insert\\(rasso.assov->alist, aptr\\)'");
  EXPECT_DEATH(link_failing(3), "ddlproperty_asso.cpp.*Assertion `0' failed");
  EXPECT_DEATH(link_failing(4), "`sl_insert\\(asso.assov->alist, aptr\\)'");
  const FailMalloc fail(5);
  EXPECT_EQ(associate("A", "x", "B", "y"), 0);
  EXPECT_FALSE(fail.happened());
}

}  // namespace
}  // namespace kzddl_test
