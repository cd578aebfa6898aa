// TEST UNIT READY: wire, results by path, and the messages of each.
#include "support/disk_test.h"

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
INSTANTIATE_TEST_SUITE_P(, SgTur, every_sg_way, way_name);
INSTANTIATE_TEST_SUITE_P(, Tur, every_way, way_name);

TEST_P(Tur, SaysNothingUnlessItFailsOnAnSgRequest) {
  EXPECT_EQ(tur_and_messages(), 0);
  EXPECT_EQ(messages, "");
  if (!GetParam().ia64) return;
  fail_ioctl(EIO);
  EXPECT_EQ(tur_and_messages(), -1);
  EXPECT_EQ(messages, "");
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

}  // namespace
}  // namespace kzddl_test
