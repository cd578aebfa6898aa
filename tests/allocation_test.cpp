// Short memory: every exported operation that allocates, with its first allocation failing, then
// its second, and so on until it succeeds, by every way a command can travel.
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

/// What `call` returns, and what it leaves in an output that is marked beforehand; released.
template <class T, class Call>
std::string said(Call call, void (*release)(void *) = std::free) {
  alignas(std::max_align_t) static char mark[sizeof(std::max_align_t)];
  T *out = reinterpret_cast<T *>(mark);
  std::string text = std::to_string(call(&out));
  if (out == reinterpret_cast<T *>(mark)) return text + " untouched";
  if (out == nullptr) return text + " null";
  release(out);
  return text + " set";
}

template <class T, class Call>
Row output(const std::string &name, Call call, const Strings &failures, const Strings &ia64 = {},
           void (*release)(void *) = std::free) {
  return {name, [call, release] { return said<T>(call, release); }, failures, ia64};
}

/// A command that says a length, here behind the rest.
template <class Call>
Row reply(const std::string &name, Call call, const Strings &failures, const Strings &ia64 = {}) {
  const auto run = [call] {
    int length = -7;
    const std::string text = said<unsigned char>(bind_front(call, &length));
    return text + " " + std::to_string(length);
  };
  return {name, run, failures, ia64};
}

template <class Call>
Row result(const std::string &name, Call call, const Strings &failures, const Strings &ia64 = {}) {
  return {name, [call] { return std::to_string(call()); }, failures, ia64};
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

/// A legacy variant, through the control node.
template <class Call>
auto old(Call call) {
  return [call](int *length, unsigned char **out) { return call(length, out, 1); };
}

const Strings failed_at_once = {"-1"};
constexpr char *end = nullptr;
constexpr char null_device[] = "/dev/null";  // a device that every machine has

const char *attribute_value;  ///< of the attribute "A"
std::int32_t get_attribute(dip /*disk*/, const char *attr, char ***list) {
  char *pair = nullptr;
  if (nv_set_value(&pair, attr, attribute_value) != 0) return 1;
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
    const get_dynamic_attr_fn entry = get_attribute;
    const std::string address(reinterpret_cast<const char *>(&entry), sizeof entry);
    relate("LIBNAME", "lib", "GET_DYNAMIC_ATTR_ENTRY", typed(address, 1));
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

std::vector<Row> Allocation::commands() {
  static unsigned char data[4096];
  static pgr_out_param param{};
  static disk_geom geom;
  static uscsi_cmd pass{};
  static unsigned char cdb[6] = {0x12, 0, 0, 0, 36, 0};
  pass.uscsi_flags = USCSI_READ;
  pass.uscsi_cdb = cdb;
  pass.uscsi_cdblen = sizeof cdb;
  pass.uscsi_bufaddr = data;
  pass.uscsi_buflen = 36;
  const Strings none, failed{"-1"}, no_memory{"12"}, pgr{"4"}, no_keys{"4 null"};
  const Strings inquiry{"12 untouched 0"}, old_inquiry{"12 untouched 255", "12 untouched 96"};
  const Strings sense{"12 untouched -7"}, old_sense{"12 untouched 255", "12 untouched 130"};
  const Strings sense_1{"12 untouched 255"}, report{"12 untouched"}, geometry{"-1", "12"};
  const Strings capacity{"12 untouched 0"}, old_capacity{"12 untouched 24"};
  const Strings results{"12 untouched 255", "12 untouched 46"};
  const Strings id{"12 untouched", "0 fallback"}, cabinet{"-1 untouched", "-1 "};
  const Strings old_id{"12 untouched", "12 untouched", "0 fallback"};
  const Strings old_cabinet{"-1 untouched", "-1 untouched", "-1 "};
  const Strings by_mode_page{"0 set", "0 set",
                             "0 set: do_convert_to_rcr_oper_parm: unable to allocate memory\n"};
  odh *p = &path;
  constexpr unsigned lo = 0x5678, hi = 0x1234;
  constexpr int probe = KZDDL_DISKIO_PROBE, read = KZDDL_DISKIO_READ, write = KZDDL_DISKIO_WRITE;
  const auto conflict_of = [](auto call) {
    return [call](int *length, unsigned char **out) {
      int conflict = 0;
      return call(length, out, &conflict);
    };
  };
  const auto copy_results = [p](int *length, unsigned char **out) {
    return do_rcv_copy_results(p, 0, 3, 0, 255, 0, reinterpret_cast<unsigned *>(length), out);
  };
  const auto lun_id = [p](char *text) {
    unsigned char type = 0;
    return get_lun_id(p, 0x00, text, &type, "fallback");
  };
  return {
      reply("do_inquiry", bind_front(do_inquiry, p, 0, 0, 0), inquiry, old_inquiry),
      reply("do_inquiry_32", bind_front(do_inquiry_32, p, 0, 0, 0), inquiry, old_inquiry),
      reply("do_inquiry_old", old(bind_front(do_inquiry_old, p, 0, 0, 0)), old_inquiry),
      result("do_scsi", bind_front(do_scsi, p, &pass), none, no_memory),
      result("do_tur", bind_front(do_tur, p), none, failed),
      result("do_tur_32", bind_front(do_tur_32, p), none, failed),
      result("do_tur_35", bind_front(do_tur_35, p), none, failed),
      result("do_diskio", bind_front(do_diskio, p, 0, 9, data, probe), failed),
      result("do_diskio_32", bind_front(do_diskio_32, node, 0, 1, data, read), failed),
      result("do_diskio_35", bind_front(do_diskio_35, p, 0, 1, data, write), failed),
      result("do_diskio_chk_rsvn", bind_front(do_diskio_chk_rsvn, p), failed),
      reply("do_mode_sense_raw", bind_front(do_mode_sense_raw, p, 0, 0, 0x3F), sense),
      reply("do_mode_sense", conflict_of(bind_front(do_mode_sense, p, 0, 0, 0x3F)), sense),
      reply("generic_mode_sense_old", old(bind_front(generic_mode_sense_old, p, 0, 0, 0x3F)),
            old_sense),
      reply("do_mode_sense_raw1", bind_front(do_mode_sense_raw1, lo, hi, 0, 0, 0x3F, 0), sense_1,
            old_sense),
      reply("do_mode_sense_raw1_old", bind_front(do_mode_sense_raw1_old, lo, hi, 0, 0, 0x3F, 0),
            old_sense),
      reply(
          "get_mode_page_info",
          [](int *length, unsigned char **out) { return get_mode_page_info(data, 8, out, length); },
          sense),
      result("do_mode_select_raw", bind_front(do_mode_select_raw, lo, hi, 1, 0, 0, data), none,
             no_memory),
      result("do_mode_select_raw_old", bind_front(do_mode_select_raw_old, lo, hi, 1, 0, 0, data),
             no_memory),
      reply("do_read_capacity", bind_front(do_read_capacity, p, 0, 0, 0), capacity, old_capacity),
      reply("do_read_capacity_32", bind_front(do_read_capacity_32, p, 0, 0, 0), capacity,
            old_capacity),
      reply("do_read_capacity_35", bind_front(do_read_capacity_35, p, 0, 0, 0), capacity,
            old_capacity),
      reply("do_read_capacity_16", bind_front(do_read_capacity_16, p, 0, 0, 0), capacity,
            old_capacity),
      reply("do_read_capacity_old", old(bind_front(do_read_capacity_old, p, 0, 0, 0)),
            old_capacity),
      result("do_pgr_out", bind_front(do_pgr_out, p, 0, 0, 0, &param), pgr),
      result("do_pgr_out_32", bind_front(do_pgr_out_32, node, 0, 0, 0, &param), pgr),
      result("do_pgr_out_35", bind_front(do_pgr_out_35, p, 0, 0, 0, &param), pgr),
      output<pgr_in_data>("do_pgr_in", bind_front(do_pgr_in, p, 0), no_keys),
      output<pgr_in_data>("do_pgr_in_32", bind_front(do_pgr_in_32, node, 0), no_keys),
      output<pgr_in_data>("do_pgr_in_35", bind_front(do_pgr_in_35, p, 0), no_keys),
      output<unsigned char>("do_rtpg", bind_front(do_rtpg, p), report),
      output<unsigned char>("do_report_target_port_group",
                            bind_front(do_report_target_port_group, p), report),
      result("do_stpg", bind_front(do_stpg, p, data, 0), none, no_memory),
      reply("do_rcv_copy_results", copy_results, results),
      identity("get_lun_id", lun_id, id, old_id),
      identity("get_cabinet_id", bind_front(get_cabinet_id, p), cabinet, old_cabinet),
      result("get_geometry_info", bind_front(get_geometry_info, node, &geom), geometry),
      result("gen_get_geometry_info", bind_front(gen_get_geometry_info, path, &geom), geometry),
      output<rcr_oper_parm>("do_operating_parameters", bind_front(do_operating_parameters, p),
                            by_mode_page),
  };
}

std::vector<Row> Allocation::blocks() {
  static const unsigned char bytes[64] = {};
  static const auto equal = [](const void *, const void *) { return 0; };
  static sl_list *items = sl_create(4, 0.5F, equal);
  const auto complaint = [](const std::string &builder) {
    return Strings{"-1 null: " + builder + ": unable to allocate memory\n"};
  };
  const auto td = [complaint](const std::string &name, auto call) {
    return output<unsigned char>(name, call, complaint(name));
  };
  const auto converted = [complaint](const std::string &name, auto convert) {
    return output<rcr_oper_parm>(name, bind_front(convert, bytes, 64), complaint(name));
  };
  const auto field = [](const std::string &name, void (*allocate)(char **), const char *complaint) {
    return output<char>(name, [allocate](char **out) { return allocate(out), 0; }, {complaint});
  };
  const auto nv = [](const std::string &name, auto call) {
    return output<char>(name, call, {"-1 untouched"}, {}, nv_free);
  };
  const auto nv_array = [](const std::string &name, auto call) {
    return output<char *>(name, call, {"-1 untouched"}, {}, nv_free);
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
      td("do_td_create_e0", bind_front(do_td_create_e0, bytes, bytes, 0)),
      td("do_td_create_e1", bind_front(do_td_create_e1, bytes, bytes, 0)),
      td("do_td_create_e4", bind_front(do_td_create_e4, 1, 3, 8, bytes, 0)),
      converted("do_convert_to_rcr_oper_parm", do_convert_to_rcr_oper_parm),
      converted("do_convert_mode_sense_oper_parm_to_rcr_oper_parm",
                do_convert_mode_sense_oper_parm_to_rcr_oper_parm),
      output<char>("do_ts_build", bind_front(do_ts_build, 1, 2, "ab"), no_text),
      output<char>("ts_build", bind_front(ts_build, 1, 2, "ab"), no_text),
      output<char>("do_ts_tostring", bind_front(do_ts_tostring, "\x1B\1\2ab"), no_text),
      output<char>("ts_tostring", bind_front(ts_tostring, "plain"), no_text),
      field("alloc_vid_buffer", alloc_vid_buffer, "0 null: malloc for VID failed\n"),
      field("alloc_pid_buffer", alloc_pid_buffer, "0 null: malloc for PID failed\n"),
      output<void>(
          "nv_alloc", [](void **out) { return *out = nv_alloc(8), 0; }, {"0 null"}, {}, nv_free),
      nv_array("nv_create_list", [](char ***l) { return nv_create_list(l, "a=1", "b=2", end); }),
      nv_array("nv_append_list", append_list),
      nv("nv_set_value", [](char **s) { return nv_set_value(s, "n", "x"); }),
      nv("nv_set_mult_value", [](char **s) { return nv_set_mult_value(s, "n", "x", "y", end); }),
      nv("nv_append_value", [](char **s) { return nv_append_value(s, "n=x", "y", end); }),
      nv("nv_get_name", bind_front(nv_get_name, "n=x")),
      nv_array("nv_get_value", bind_front(nv_get_value, "n=x")),
      nv_array("nv_get_value, typed", bind_front(nv_get_value, "n=\x1B\0\0")),
      result("nv_print", print, {"0"}),
      result(
          "sl_create", [] { return sl_destroy(sl_create(4, 0.5F, equal)); }, failed_at_once),
      result("sl_insert", insert, failed_at_once),
  };
}

std::vector<Row> Allocation::database() {
  static const char *const values[] = {"v", "w", nullptr};
  const auto array = [](const std::string &name, auto call, const Strings &failures) {
    return output<const char *>(name, call, failures);
  };
  const auto links = [](const std::string &name, auto call, const Strings &failures) {
    const auto run = [call] {
      const char **values = nullptr;
      const std::string text =
          said<const char *>([&](const char ***names) { return call(names, &values); });
      std::free(values);
      return text + (values != nullptr ? " set" : " null");
    };
    return Row{name, run, failures, {}};
  };
  /// A fetch that fails: at its own allocations, and at those of the library it asks.
  const auto fetch = [](const std::string &found, const char *value) {
    attribute_value = value;
    const std::string said = found + ": ddl_get_dynamic_attr: ";
    const std::string room = said + "Unable to obtain storage for ";
    const std::string error = said + "lib /dev/null get_";
    const std::string behind = "() error -1 for A=" + std::string(value) + "\n";
    return Strings{room + "dip object for disk path /dev/null\n",
                   room + "odh object for disk path /dev/null\n",
                   found,
                   found,
                   error + "name" + behind,
                   error + "value" + behind,
                   found};
  };
  const auto geometry = [](disk_geom **cached) { return ddl_get_geometry(node, cached, 0); };
  const auto geometry_attribute = [](char ***list) {
    dip disk{};
    std::strcpy(disk.path, node);
    return get_dynamic_geometry(disk, "DISK_GEOMETRY", list);
  };
  const auto keep = [](void *) {};
  const auto initialize = [] { return init_property_list(nullptr), is_proplist_initialized(); };
  const auto print = [] { return printed(), 0; };
  const Strings none{"-1 untouched"}, not_found{"0 untouched"}, no_links{"-1 untouched null"};
  const Strings partly{"-1", "-1", "-1", "2 changed"};
  const Strings no_geometry{"1 untouched",
                            "1 untouched: get_dynamic_geometry:Memory allocation failed \n",
                            "1 untouched"};
  Strings fetched = fetch("1 set", "stored");
  fetched.push_back("-1 null");
  Strings all_fetched = fetch("3 set set", "stored");
  all_fetched.insert(all_fetched.begin(), "3 set set");  // the copies of the attributes' names
  all_fetched.push_back("-1 null null");
  return {
      result("init_property_list", initialize, {"0 changed"}),
      result("create_property", bind_front(create_property, "NEW", 0, 0, 0), {"-1"}),
      result("set_property", bind_front(set_property, "NEW", values), partly),
      result("set_property_ts", bind_front(set_property_ts, "NEW", values), partly),
      array("get_property", bind_front(get_property, "P"), not_found),
      array("get_property_ts", bind_front(get_property_ts, "P"), not_found),
      array("get_asso_val", bind_front(get_asso_val, "P", "x", "Q"), none),
      array("get_asso_val_ts", bind_front(get_asso_val_ts, "P", "x", "Q"), none),
      array("select_asso_val", bind_front(select_asso_val, "P", "x", 1, "Q"), none),
      array("select_asso_val_ts", bind_front(select_asso_val_ts, "P", "x", 1, "Q"), none),
      links("get_asso", bind_front(get_asso, "P", "x"), no_links),
      links("get_asso_ts", bind_front(get_asso_ts, "P", "x"), no_links),
      array("get_asso_val, fetched", bind_front(get_asso_val, "DISK", null_device, "A"), fetched),
      links("get_asso, fetched", bind_front(get_asso, "DISK", null_device), all_fetched),
      result("print_property_list", print, {"0"}),
      output<disk_geom>("ddl_get_geometry", geometry, no_geometry, {}, keep),
      output<char *>("get_dynamic_geometry", geometry_attribute, no_geometry, {}, nv_free),
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
