// TEST UNIT READY: wire, results by path, and the messages of each.
#include "support/disk_test.h"
#include "support/failing_malloc.h"

namespace kzddl_test {
namespace {

class Tur : public WayTest {
 protected:
  int tur_and_messages() {
    testing::internal::CaptureStderr();
    const int result = do_tur(&path);
    messages = testing::internal::GetCapturedStderr();
    return result;
  }

  std::string messages;
};
class SgTur : public Tur {};
class LegacyTur : public Tur {};
INSTANTIATE_TEST_SUITE_P(, SgTur, every_sg_way, way_name);
INSTANTIATE_TEST_SUITE_P(, LegacyTur, every_legacy_way, way_name);

TEST_P(SgTur, Wire) {
  EXPECT_EQ(tur_and_messages(), 0);
  EXPECT_EQ(messages, "");
  const Request request = only_request();
  expect_way(request, GetParam().direct() ? O_RDONLY : O_NONBLOCK);
  EXPECT_EQ(request.cdb, Bytes(6));
  expect_header(request, SG_DXFER_NONE, 0);
  EXPECT_EQ(request.header.dxferp, nullptr);
}

TEST_P(SgTur, StatusIsNegatedAndReportedOnce) {
  answer(Sense{0x02, 0x04, 0x01});
  EXPECT_EQ(tur_and_messages(), -(1 | 8));
  EXPECT_EQ(messages.find("TUR ioctl failed: "), 0u);
  EXPECT_EQ(messages.find('\n'), messages.size() - 1);
}

TEST_P(SgTur, FailedCallIsReportedWithItsReason) {
  fail_ioctl(EIO);
  EXPECT_EQ(tur_and_messages(), -1);
  EXPECT_EQ(messages, "TUR ioctl failed: Input/output error\n");
}

TEST_P(SgTur, NodeThatCannotBeOpened) {
  host.fail_open(GetParam().direct() ? node : sim::control_node, ENOENT);
  const int result = tur_and_messages();
  EXPECT_EQ(result, GetParam().direct() ? 1 : -19);
  EXPECT_EQ(messages, GetParam().direct() ? "open failed: No such file or directory\n"
                                          : "TUR ioctl failed: No such file or directory\n");
}

TEST_P(LegacyTur, WireAndRawResults) {
  EXPECT_EQ(tur_and_messages(), 0);
  const Request request = only_request();
  expect_way(request, GetParam().direct() ? O_RDONLY : O_NONBLOCK);
  EXPECT_EQ(request.in_length, 0u);
  EXPECT_EQ(request.out_length, 0u);
  EXPECT_EQ(request.cdb, Bytes(6));

  {
    const FailMalloc fail(1);
    EXPECT_EQ(tur_and_messages(), -1);
  }
  host.inject(node, {.reply = Reply::check_condition({0x02, 0x04, 0x01})});
  EXPECT_EQ(tur_and_messages(), 2);
  fail_ioctl(EIO);
  EXPECT_EQ(tur_and_messages(), -1);
  host.fail_open(GetParam().direct() ? node : sim::control_node, ENOENT);
  EXPECT_EQ(tur_and_messages(), GetParam().direct() ? -1 : 19);
  EXPECT_EQ(messages, "") << "the legacy path reports nothing";
}

TEST_F(DiskTest, TurVariantsChooseTheirOwnRoute) {
  EXPECT_EQ(do_tur_32(&path), 0);
  EXPECT_FALSE(only_request().through_control_node);
  kzscsi_set_version("32");
  EXPECT_EQ(do_tur_35(&path), 0);
  EXPECT_TRUE(only_request().through_control_node);
}

}  // namespace
}  // namespace kzddl_test
