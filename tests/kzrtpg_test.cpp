// REPORT and SET TARGET PORT GROUPS: wire, retries, and the signs of failures.
#include "kzddl/kzrtpg.h"

#include "kzddl/kzstpg.h"
#include "support/disk_test.h"

namespace kzddl_test {
namespace {

class Rtpg : public WayTest {
 protected:
  int report() {
    unsigned char *buffer = untouched;
    const int result = do_report_target_port_group(&path, &buffer);
    if (result == 0) {
      data.reset(buffer);
    } else {
      EXPECT_EQ(buffer, untouched) << "the reply is set on success only";
    }
    return result;
  }

  std::size_t attempts() { return host.take_requests().size(); }

  kzddl::Buffer data;

 private:
  unsigned char untouched[1] = {};
};
class SgRtpg : public Rtpg {};
INSTANTIATE_TEST_SUITE_P(, Rtpg, every_way, way_name);
INSTANTIATE_TEST_SUITE_P(, SgRtpg, every_sg_way, way_name);

TEST_P(Rtpg, AllOfTheReply) {
  answer(Reply::with(Bytes(300, 0x5A)));  // longer than the allocation length
  ASSERT_EQ(report(), 0);
  EXPECT_EQ(data[254], 0x5A);
}

TEST_P(SgRtpg, UnitAttentionsAreTriedAgain) {
  answer(Reply::check_condition({0x06, 0x2A, 0x06}), 3);
  answer(Reply::with({0, 0, 0, 8}));
  EXPECT_EQ(report(), 0);
  EXPECT_EQ(attempts(), 4u);
}

TEST_P(SgRtpg, SixtyFourAttemptsInAll) {
  answer(Reply::check_condition({0x06, 0x2A, 0x06}));
  EXPECT_EQ(report(), 1 | 8);
  EXPECT_EQ(attempts(), 64u);
}

TEST_P(SgRtpg, SenseKeyIsComparedWhole) {
  answer(Sense{0x26, 0x2A, 0x06});
  EXPECT_EQ(report(), 1 | 8);
  EXPECT_EQ(attempts(), 1u);
}

TEST_P(SgRtpg, BusyAndHostErrorsAreTriedAgain) {
  answer(Reply{.status = sim::status::busy}, 2);
  answer(Reply{.host_status = 3}, 2);
  answer(Reply::with({0, 0, 0, 8}));
  EXPECT_EQ(report(), 0);
  EXPECT_EQ(attempts(), 5u);
}

TEST_P(SgRtpg, NothingIsResetBetweenAttempts) {
  // The failed call leaves the busy status of the attempt before it: that is what counts.
  host.inject(node, {.reply = Reply{.status = sim::status::busy}});
  host.inject(node, {.error = EIO});
  answer(Reply::with({0, 0, 0, 8}));
  EXPECT_EQ(report(), 0);
  EXPECT_EQ(attempts(), 3u);
}

class Stpg : public WayTest {
 protected:
  int set(Bytes list) {
    const Bytes before = list;
    const int result = do_stpg(&path, list.data(), static_cast<std::uint32_t>(list.size()));
    EXPECT_EQ(list, before) << "the caller's list is only read";
    return result;
  }
};
INSTANTIATE_TEST_SUITE_P(, Stpg, every_way, way_name);

TEST_P(Stpg, LengthFillsFourBytes) {
  answer(Reply{});
  EXPECT_EQ(set({}), 0);
  EXPECT_TRUE(only_request().data_out.empty());
  const int result = set(Bytes(65540));
  if (GetParam().ia64) {
    EXPECT_EQ(result, EINVAL) << "over the kernel's limit of a legacy request";
  } else {
    EXPECT_EQ(result, 0);
    const Bytes cdb = only_request().cdb;
    EXPECT_EQ(Bytes(cdb.begin() + 6, cdb.begin() + 10), (Bytes{0, 1, 0, 4}));
  }
}

}  // namespace
}  // namespace kzddl_test
