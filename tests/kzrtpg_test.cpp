// REPORT and SET TARGET PORT GROUPS: wire, retries, and the signs of failures.
#include "kzddl/kzrtpg.h"

#include <algorithm>

#include "kzddl/kzstpg.h"
#include "support/disk_test.h"
#include "support/failing_malloc.h"

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
class LegacyRtpg : public Rtpg {};
INSTANTIATE_TEST_SUITE_P(, Rtpg, every_way, way_name);
INSTANTIATE_TEST_SUITE_P(, SgRtpg, every_sg_way, way_name);
INSTANTIATE_TEST_SUITE_P(, LegacyRtpg, every_legacy_way, way_name);

TEST_P(Rtpg, Wire) {
  Bytes reply(300, 0x5A);  // longer than the allocation length
  answer(Reply::with(reply));
  ASSERT_EQ(report(), 0);
  EXPECT_EQ(data[254], 0x5A);
  const Request request = only_request();
  expect_way(request, 0);
  EXPECT_EQ(request.cdb, (Bytes{0xA3, 0x0A, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0, 0}));
  if (GetParam().ia64) {
    EXPECT_EQ(request.in_length, 0u);
    EXPECT_EQ(request.out_length, 255u);
  } else {
    expect_header(request, SG_DXFER_FROM_DEV, 255);
  }
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

TEST_P(SgRtpg, OtherCheckConditionsStop) {
  answer(Sense{0x05, 0x20, 0});
  EXPECT_EQ(report(), 1 | 8);
  EXPECT_EQ(attempts(), 1u);
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

TEST_P(SgRtpg, FailedCallsStop) {
  fail_ioctl(EIO);
  EXPECT_EQ(report(), -1);
  EXPECT_EQ(attempts(), 1u);
}

TEST_P(LegacyRtpg, OneAttempt) {
  host.inject(node, {.reply = Reply::check_condition({0x06, 0x2A, 0x06})});
  EXPECT_EQ(report(), -2);
  host.inject(node, {.error = EIO});
  EXPECT_EQ(report(), EIO);
}

TEST_P(Rtpg, NodeThatCannotBeOpenedAndNoMemory) {
  for (long n = 1; n <= (GetParam().ia64 ? 2 : 1); ++n) {
    answer(Reply{}, 1);
    const FailMalloc fail(n);
    EXPECT_EQ(report(), ENOMEM);
  }
  host.fail_open(GetParam().direct() ? node : sim::control_node, EACCES);
  EXPECT_EQ(report(), GetParam().direct() ? EACCES : GetParam().ia64 ? -19 : 19);
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

TEST_P(Stpg, Wire) {
  answer(Reply{});
  const Bytes list{0, 0, 0, 0, 2, 0, 0, 1};
  EXPECT_EQ(set(list), 0);
  const Request request = only_request();
  expect_way(request, 0);
  EXPECT_EQ(request.cdb, (Bytes{0xA4, 0x0A, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0}));
  EXPECT_EQ(request.data_out, list);
  if (!GetParam().ia64) expect_header(request, SG_DXFER_TO_DEV, 8);
  EXPECT_EQ(set({}), 0);
  EXPECT_TRUE(only_request().data_out.empty());
}

TEST_P(Stpg, LengthFillsFourBytes) {
  answer(Reply{});
  const int result = set(Bytes(65540));
  if (GetParam().ia64) {
    EXPECT_EQ(result, EINVAL) << "over the kernel's limit of a legacy request";
  } else {
    EXPECT_EQ(result, 0);
    const Bytes cdb = only_request().cdb;
    EXPECT_EQ(Bytes(cdb.begin() + 6, cdb.begin() + 10), (Bytes{0, 1, 0, 4}));
  }
}

TEST_P(Stpg, SignsOfFailures) {
  const bool positive = !GetParam().direct() && !GetParam().ia64;
  const int status = GetParam().ia64 ? 2 : 9;
  answer(Sense{0x06, 0x2A, 0x06});
  EXPECT_EQ(set({0, 0, 0, 0}), positive ? status : -status);
  EXPECT_EQ(host.take_requests().size(), 1u) << "not tried again";
}

TEST_P(Stpg, FailedCallsAndNodes) {
  const bool raw = !GetParam().direct() && !GetParam().ia64;
  fail_ioctl(EIO);
  EXPECT_EQ(set({0, 0, 0, 0}), raw ? -1 : EIO);
  host.fail_open(GetParam().direct() ? node : sim::control_node, EACCES);
  EXPECT_EQ(set({0, 0, 0, 0}), GetParam().direct() ? EACCES : raw ? 19 : -19);
  if (GetParam().ia64) {
    host.fail_open(node, 0);
    const FailMalloc fail(1);
    EXPECT_EQ(do_stpg(&path, nullptr, 0), ENOMEM);
  }
}

}  // namespace
}  // namespace kzddl_test
