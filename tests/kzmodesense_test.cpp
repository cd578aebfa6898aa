// MODE SENSE and MODE SELECT: wire, reservation flag, extraction of pages, hostile answers.
#include "kzddl/kzmodesense.h"

#include "capture/capture.h"
#include "support/disk_test.h"
#include "support/guarded_page.h"

namespace kzddl_test {
namespace {

/// A header, one block descriptor and a page of 12 bytes.
Bytes answer_with_page() {
  return {23, 0, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8, 0x8A, 10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
}

class ModeSense : public WayTest {
 protected:
  int sense_raw() {
    unsigned char *buffer = nullptr;
    const int result = do_mode_sense_raw(&path, 1, 2, 0x3F, &length, &buffer);
    data.reset(buffer);
    return result;
  }

  int sense() {
    unsigned char *buffer = nullptr;
    conflict = 7;
    const int result = do_mode_sense(&path, 0, 0, 0x0A, &length, &buffer, &conflict);
    data.reset(buffer);
    return result;
  }

  int length = -7;
  int conflict = 7;
  kzddl::Buffer data;
};
INSTANTIATE_TEST_SUITE_P(, ModeSense, every_way, way_name);

TEST_P(ModeSense, WholeAnswer) {
  answer(Reply::with(answer_with_page()), 1);
  ASSERT_EQ(sense_raw(), 0);
  EXPECT_EQ(length, 24);
  EXPECT_EQ(Bytes(data.get(), data.get() + 24), answer_with_page());
  Bytes longest(255, 1);
  longest[0] = 255;
  answer(Reply::with(longest));
  ASSERT_EQ(sense_raw(), 0);
  EXPECT_EQ(length, 255) << "capped";
}

TEST_P(ModeSense, OnlyThePages) {
  answer(Reply::with(answer_with_page()));
  ASSERT_EQ(sense(), 0);
  EXPECT_EQ(length, 12);
  EXPECT_EQ(Bytes(data.get(), data.get() + 12), (Bytes{0x8A, 10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(conflict, 0);
}

TEST_P(ModeSense, ReservationConflictSetsTheFlag) {
  host.inject(node, {.reply = Reply{.status = sim::status::reservation_conflict}});
  EXPECT_EQ(sense(), GetParam().ia64 ? -24 : -12);
  EXPECT_EQ(conflict, GetParam().ia64 ? 0 : 1) << "the legacy path never sets it";
  host.inject(node, {.reply = Reply{.status = sim::status::busy}});
  EXPECT_LT(sense(), 0);
  EXPECT_EQ(conflict, 0);
  host.inject(node, {.error = EIO});
  EXPECT_EQ(sense(), EIO);
  EXPECT_EQ(conflict, 0);
  EXPECT_EQ(data, nullptr);
}

TEST_P(ModeSense, AnswerShorterThanItsDescriptors) {
  answer(Reply::with({7, 0, 0, 255}));
  EXPECT_EQ(sense(), ENOMEM);
  EXPECT_EQ(data, nullptr);
}

TEST(ModePages, ExtractEndsWithTheAnswer) {
  const auto size = [](const Bytes &answer) {
    const GuardedPage guarded(answer);
    unsigned char *pages = nullptr;
    int length = -7;
    const int result =
        get_mode_page_info(guarded.data(), static_cast<int>(answer.size()), &pages, &length);
    std::free(pages);
    return result == 0 ? length : -result;
  };
  EXPECT_EQ(size(answer_with_page()), 12);
  EXPECT_EQ(size({3, 0, 0, 0}), 0) << "an empty extract";
  EXPECT_EQ(size({3, 0, 0, 8}), -ENOMEM);
  EXPECT_EQ(size({11, 0, 0, 12, 1, 2, 3, 4, 5, 6, 7, 8}), 0) << "12 >> 3 is one descriptor";
  EXPECT_EQ(size({3, 0}), -ENOMEM);
  EXPECT_EQ(size({}), -ENOMEM);
}

std::string decoded(const Bytes &answer, int *offset) {
  const GuardedPage guarded(answer);
  testing::internal::CaptureStdout();
  *offset = decode_mode_sense_data(guarded.data(), static_cast<int>(answer.size()));
  return testing::internal::GetCapturedStdout();
}

TEST(ModePages, Decode) {
  int offset = 0;
  EXPECT_EQ(decoded({17, 0, 0, 8, 0, 0, 0, 0, 0, 0, 2, 0, 0x88, 1, 7, 0x0A, 1, 9}, &offset),
            "\n--------- Mode Sense Information\n\n\n-------- Mode Sense Header\n"
            "Byte  0 (# 0) : 0x11\nByte  1 (# 1) : 0x0\nByte  2 (# 2) : 0x0\n"
            "Byte  3 (# 3) : 0x8\n\t\t\t...... Number of block descriptors = 1\n"
            "\n-------- Block Descriptor #0\n"
            "Byte  0 (# 4) : 0x0\nByte  1 (# 5) : 0x0\nByte  2 (# 6) : 0x0\nByte  3 (# 7) : 0x0\n"
            "Byte  4 (# 8) : 0x0\nByte  5 (# 9) : 0x0\nByte  6 (#10) : 0x2\nByte  7 (#11) : 0x0\n"
            "\n--------- Mode page : #0 (page code : 0x8)\n"
            "Byte  0 (#12) : 0x88\nByte  1 (#13) : 0x1\nByte  2 (#14) : 0x7\n"
            "\n--------- Mode page : #1 (page code : 0xa)\n"
            "Byte  0 (#15) : 0xa\nByte  1 (#16) : 0x1\nByte  2 (#17) : 0x9\n");
  EXPECT_EQ(offset, 18);
  decoded({3, 0, 0, 0}, &offset);
  EXPECT_EQ(offset, 4);
}

TEST(ModePages, DecodeOfAnswersThatLie) {
  int offset = 0;
  // More descriptors, a longer page, less of everything than announced.
  decoded({3, 0, 0, 0xFF, 1, 2}, &offset);
  EXPECT_EQ(offset, 4 + 8 * 31);
  EXPECT_NE(decoded({3, 0, 0, 0, 0x0A, 0xFF, 1}, &offset).find("Byte  2 (# 6) : 0x1\n"),
            std::string::npos);
  EXPECT_EQ(offset, 7);
  decoded({3, 0, 0, 0, 0x0A}, &offset);
  EXPECT_EQ(offset, 5);
  decoded({1, 2}, &offset);
  decoded({}, &offset);
}

TEST(ModePages, CapturedAnswersDecodeToTheirEnd) {
  for (const char *target : {"lio-path1", "scsi_debug-lun0"}) {
    const Bytes answer =
        capture::load(std::string(KZDDL_TEST_DATA "/") + target + "/mode-sense-all.hex");
    int offset = 0;
    EXPECT_NE(decoded(answer, &offset).find("(page code : 0x1c)"), std::string::npos);
    EXPECT_EQ(offset, static_cast<int>(answer.size()));
  }
}

TEST(ModePages, Dump) {
  const unsigned char data[] = {0x0A};
  testing::internal::CaptureStdout();
  dump_mode_sense_data(data, 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\n--------- Mode Sense Data (in raw format)\n\nByte # 0 : 0xa\n");
}

}  // namespace
}  // namespace kzddl_test
