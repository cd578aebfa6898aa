// The commands of path management: retries of REPORT TARGET PORT GROUPS, the two passes and the
// results of persistent reservations; and the decoders of port groups and of the identification
// page, each on bytes that end before an inaccessible page.
#include <malloc.h>

#include <algorithm>

#include "base/bytes.h"
#include "capture/capture.h"
#include "kzddl/ddlalua.h"
#include "kzddl/kzpgr.h"
#include "kzddl/kzrtpg.h"
#include "kzddl/kzstpg.h"
#include "support/disk_test.h"
#include "support/failing_malloc.h"
#include "support/guarded_page.h"

namespace kzddl_test {
namespace {

Bytes captured(const std::string &target, const std::string &reply) {
  return capture::load(KZDDL_TEST_DATA "/" + target + "/" + reply + ".hex");
}

class ReportGroups : public WayTest {};
INSTANTIATE_TEST_SUITE_P(, ReportGroups, every_sg_way, way_name);

TEST_P(ReportGroups, TriesAgain) {
  const Reply good = Reply::with({0, 0, 0, 8}), busy{.status = sim::status::busy};
  const Reply attention = Reply::check_condition({0x06, 0x2A, 0x06});
  const struct {
    const char *what;
    std::vector<std::pair<Reply, int>> replies;  ///< each so often; -1: for ever
    int result;
    std::size_t attempts;
  } cases[] = {
      {"unit attentions", {{attention, 3}, {good, 1}}, 0, 4},
      {"the sense key is compared whole", {{Reply::check_condition({0x26, 0x2A, 6}), 1}}, 9, 1},
      {"busy and host errors", {{busy, 2}, {{.host_status = 3}, 2}, {good, 1}}, 0, 5},
      // The failed call leaves the busy status of the attempt before it: that is what counts.
      {"nothing is reset between attempts", {{busy, 1}, {{.error = EIO}, 1}, {good, 1}}, 0, 3},
      {"64 attempts in all", {{attention, -1}}, 9, 64},
  };
  for (const auto &[what, replies, result, attempts] : cases) {
    for (const auto &[reply, times] : replies)
      answer(reply, times);
    unsigned char *block = nullptr;
    EXPECT_EQ(do_report_target_port_group(&path, &block), result) << what;
    EXPECT_EQ(host.take_requests().size(), attempts) << what;
    std::free(block);
  }
}

class SetGroups : public WayTest {};
INSTANTIATE_TEST_SUITE_P(, SetGroups, every_way, way_name);

TEST_P(SetGroups, LengthFillsFourBytes) {
  answer(Reply{});
  Bytes list(65540);
  EXPECT_EQ(do_stpg(&path, list.data(), 0), 0);
  EXPECT_TRUE(only_request().data_out.empty());
  const int result = do_stpg(&path, list.data(), static_cast<std::uint32_t>(list.size()));
  if (GetParam().ia64) {
    EXPECT_EQ(result, EINVAL) << "over the kernel's limit of a legacy request";
    return;
  }
  EXPECT_EQ(result, 0);
  const Bytes cdb = only_request().cdb;
  EXPECT_EQ(Bytes(cdb.begin() + 6, cdb.begin() + 10), (Bytes{0, 1, 0, 4}));
}

class Pgr : public WayTest {
 protected:
  unsigned out() {
    pgr_out_param param{};
    return do_pgr_out(&path, 1, 0, 5, &param);
  }

  unsigned in() {
    pgr_in_data stale{};
    pgr_in_data *result = &stale;
    const std::uint32_t code = do_pgr_in(&path, 0x100, &result);
    EXPECT_NE(result, &stale);
    data.reset(result);
    EXPECT_EQ(code == PGR_OK, data != nullptr);
    return code;
  }

  /// A reply that announces `announced` bytes and brings `present`.
  void answer_keys(std::uint32_t announced, std::size_t present, int times = 1) {
    Bytes reply(8 + present, 0xAB);
    kzddl::store_be32(reply.data(), 77);
    kzddl::store_be32(reply.data() + 4, announced);
    answer(Reply::with(reply), times);
  }

  static constexpr unsigned ok = PGR_OK;
  kzddl::Owned<pgr_in_data> data;
};
INSTANTIATE_TEST_SUITE_P(, Pgr, testing::Values(direct, indirect_64, legacy_indirect), way_name);

TEST_P(Pgr, InTwoPasses) {
  answer_keys(16, 16, 2);
  mallopt(M_PERTURB, 0xA5);  // blocks are not zero by chance
  {
    const CountMalloc allocations;
    EXPECT_EQ(in(), ok);
    EXPECT_EQ(allocations.count(), 3) << "a request for each pass, and what is handed over";
  }
  EXPECT_EQ(data->generation, 77u);
  EXPECT_EQ(data->length, 16u);
  Bytes expected(16, 0xAB);
  expected.resize(16 + 4);  // the spare bytes are zero
  EXPECT_EQ(Bytes(data->data, data->data + expected.size()), expected);
  const auto requests = host.take_requests();
  ASSERT_EQ(requests.size(), 2u);
  for (const std::uint8_t pass : {0, 1}) {
    const std::uint8_t size = pass == 0 ? 12 : 28;
    EXPECT_EQ(requests[pass].cdb, (Bytes{0x5E, 0, 0, 0, 0, 0, 0, 0, size, 0}));
    EXPECT_EQ(requests[pass].out_length, size);
  }
}

TEST_P(Pgr, InLists) {
  const struct {
    const char *what;
    std::uint32_t announced, present, announced_then, present_then;
    unsigned result, length;
  } cases[] = {
      {"an empty one still takes two passes", 0, 0, 0, 0, PGR_OK, 0},
      {"a key went away: the length stays the first pass's", 16, 16, 8, 8, PGR_OK, 16},
      {"many came: only what was asked for is there", 8, 8, 800, 800, PGR_OK, 8},
      {"over the kernel's limit", 0xFFFFFFFF, 4, 0xFFFFFFFF, 4, PGR_ERROR, 0},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    answer_keys(c.announced, c.present);
    answer_keys(c.announced_then, c.present_then);
    EXPECT_EQ(in(), c.result);
    if (c.result != PGR_OK) continue;
    EXPECT_EQ(data->length, c.length);
    EXPECT_EQ(host.take_requests().size(), 2u);
  }
  EXPECT_EQ(host.take_requests().at(0).out_length, 12u);
}

TEST_P(Pgr, ResultCodes) {
  const std::pair<Reply, unsigned> cases[] = {
      {Reply::check_condition({0x05, 0x20, 0x00}), PGR_UNSUPPORTED},
      {Reply::check_condition({0x05, 0x20, 0x01}), PGR_CHECK_CONDITION},
      {Reply::check_condition({0x25, 0x20, 0x00}), PGR_CHECK_CONDITION},
      {Reply::check_condition({0x05, 0x24, 0x00}), PGR_CHECK_CONDITION},
      {Reply::check_condition({0x06, 0x20, 0x00}), PGR_CHECK_CONDITION},
      {{.status = sim::status::reservation_conflict}, PGR_CONFLICT},
      {{.status = sim::status::busy}, PGR_ERROR},
      {{.error = EIO}, PGR_ERROR},
  };
  for (const auto &[reply, code] : cases) {
    SCOPED_TRACE(reply.status);
    answer(reply, 2);
    EXPECT_EQ(out(), code);
    EXPECT_EQ(in(), code);
    answer_keys(8, 8);
    answer(reply, 1);
    EXPECT_EQ(in(), code) << "in the second pass";
  }
  host.fail_open(GetParam().direct() ? node : sim::control_node, EACCES);
  EXPECT_EQ(in(), static_cast<unsigned>(PGR_ERROR));
}

// --- decoders ---

/// What the three decoders say of a group: owner's state, its preference, that of another.
using Group = std::tuple<int, int, int>;

/// In a reply buffer of 255 bytes.
Group group_in(Bytes reply, int group) {
  reply.resize(255);
  const GuardedPage guarded(reply);
  return {get_owner_state(guarded.data(), group), get_pref_state(guarded.data(), group),
          get_other_pref_state(guarded.data(), group)};
}

TEST(PortGroups, StatesAndPreference) {
  const Bytes lio = captured("lio-path1", "report-target-port-groups");
  const Bytes debug = captured("scsi_debug-lun0", "report-target-port-groups");
  const Bytes one{0, 0, 0, 12, 0x82, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
  Bytes two(4 + 16 + 8);  // group 0x102 with two ports, and group 7
  two[3] = 24, two[6] = 0x01, two[7] = 0x02, two[11] = 2, two[20] = 0x83, two[23] = 7;
  Bytes cut = two;
  cut[3] = 16;
  Bytes lying(255);
  kzddl::store_be32(lying.data(), 0x7FFFFFFF);
  Bytes beyond = lying, at_the_end = lying;
  at_the_end[11] = 60;  // the next descriptor begins at byte 252: its number is cut
  beyond[11] = 255;
  const struct {
    const char *what;
    Bytes reply;
    int group;
    Group expected;
  } cases[] = {
      {"one group", one, 1, {2, 0x80, 0}},
      {"another is preferred", one, 2, {-1, -1, 0x80}},
      {"nothing is promised", {0, 0, 0, 0, 0x82, 0, 0, 1}, 1, {-1, -1, 0}},
      {"a negative length", {0x80, 0, 0, 0, 0x82, 0, 0, 1}, 1, {-1, -1, 0}},
      {"the first is always looked at", {0, 0, 0, 1, 0x8F, 0, 0, 1}, 1, {15, 0x80, 0}},
      {"behind two ports", two, 7, {3, 0x80, 0}},
      {"with two ports", two, 0x102, {0, 0, 0x80}},
      {"the second is not promised", cut, 7, {-1, -1, 0}},
      {"the first of two alike decides",
       {0, 0, 0, 16, 0x01, 0, 0, 1, 0, 0, 0, 0, 0x82, 0, 0, 1, 0, 0, 0, 0},
       1,
       {1, 0, 0}},
      {"never past 255 bytes", lying, 9, {-1, -1, 0}},
      {"cut at 255 bytes", at_the_end, 9, {-1, -1, 0}},
      {"ports beyond 255 bytes", beyond, 9, {-1, -1, 0}},
      {"captured, LIO", lio, 0, {0, 0, 0x80}},
      {"captured, LIO, the preferred", lio, 2, {1, 0x80, 0}},
      {"captured, scsi_debug", debug, 0x100, {0, 0, 0}},
      {"captured, scsi_debug, unavailable", debug, 0x180, {3, 0, 0}},
  };
  for (const auto &[what, reply, group, expected] : cases)
    EXPECT_EQ(group_in(reply, group), expected) << what;
}

/// NAA text, port group, relative port and unit group; what is not found stays as it was.
using PathIdentity = std::tuple<std::string, unsigned, unsigned, unsigned>;
const std::string unset = "unset";
constexpr unsigned none = 0xEEEE;

PathIdentity identity_of(const Bytes &page) {
  const GuardedPage guarded(page);
  char naa[KZDDL_NAA_TEXT_SIZE] = "unset";
  unsigned port_group = none, relative_port = none, unit_group = none;
  for (char *text : {static_cast<char *>(nullptr), naa}) {  // it may be null
    EXPECT_EQ(get_dev_id_page(guarded.data(), text, &port_group, &relative_port, &unit_group), 0);
  }
  return {naa, port_group, relative_port, unit_group};
}

/// A page of these descriptors, whole or cut.
Bytes page_of(const Bytes &descriptors) {
  Bytes page(4 + descriptors.size());
  page[1] = 0x83, page[2] = 0x7F, page[3] = static_cast<std::uint8_t>(descriptors.size());
  std::copy(descriptors.begin(), descriptors.end(), page.begin() + 4);
  return page;
}

TEST(IdentificationPage, NamesThePath) {
  const std::string lio = "60014054C7A9E025B1D4F3E9A600D2C8";
  const PathIdentity nothing{unset, none, none, none};
  Bytes full(255, 0);
  full[3] = 0xFF;
  full[4] = 1, full[5] = 3, full[7] = 243 - 4;
  full[247] = 1, full[248] = 3;  // a descriptor whose header is at the very end
  const struct {
    const char *what;
    Bytes page;
    PathIdentity expected;
  } cases[] = {
      {"captured, LIO", captured("lio-path1", "vpd-83"), {lio, 0, 1, 0}},
      {"captured, LIO's other path", captured("lio-path2", "vpd-83"), {lio, 2, 2, 0}},
      {"an NAA of 8 bytes is read with the 8 bytes that follow it",
       captured("scsi_debug-lun0", "vpd-83"),
       {"33333330000007D06194000400000001", 0x100, 1, none}},
      {"no descriptor", page_of({}), nothing},
      {"a port group of a unit, a unit group of a port",
       page_of({1, 0x05, 0, 4, 0, 0, 0, 9, 1, 0x16, 0, 4, 0, 0, 0, 9}), nothing},
      {"not binary, not of a port", page_of({2, 0x14, 0, 4, 0, 0, 0, 9, 1, 0x04, 0, 4, 0, 0, 0, 9}),
       nothing},
      {"the last match wins",
       page_of({0x61, 0x94, 0, 4, 0, 0, 0, 9, 1, 0x14, 0, 4, 1, 2, 3, 4}),
       {unset, none, 0x01020304, none}},
      {"bytes past its end count as zero",
       page_of({1, 3, 0, 8, 0xAB, 0xCD}),
       {"ABCD0000000000000000000000000000", none, none, none}},
      {"a cut relative port", page_of({1, 0x14, 0, 4}), nothing},
      {"a cut port group", page_of({1, 0x15, 0, 4, 1, 2, 3}), nothing},
      {"a cut unit group", page_of({1, 0x06, 0, 8, 0, 0, 0, 9}), nothing},
      {"a cut header", page_of({1}), nothing},
      {"a header at the very end", full, {std::string(32, '0'), none, none, none}},
  };
  for (const auto &[what, page, expected] : cases)
    EXPECT_EQ(identity_of(page), expected) << what;
}

}  // namespace
}  // namespace kzddl_test
