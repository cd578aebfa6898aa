// The commands every disk supports: what is their own in results and messages, the cache hooks of
// INQUIRY, the pages of MODE SENSE, and the printers' text.
#include <cerrno>

#include "capture/capture.h"
#include "kzddl/kzmodesense.h"
#include "support/disk_test.h"
#include "support/failing_malloc.h"
#include "support/guarded_page.h"

namespace kzddl_test {
namespace {

class CoreCommands : public WayTest {
 protected:
  /// The result, and what is written to standard error.
  std::pair<int, std::string> ready() {
    testing::internal::CaptureStderr();
    const int result = do_tur(&path);
    return {result, testing::internal::GetCapturedStderr()};
  }

  int inquire(int evpd) {
    unsigned char *block = nullptr;
    const int result = do_inquiry(&path, evpd, evpd != 0 ? 0x80 : 0, 0, &length, &block);
    data.reset(block);
    return result;
  }

  /// The page's bytes; empty when the command fails.
  Bytes mode_pages() {
    unsigned char *block = nullptr;
    conflict = 7;
    result = do_mode_sense(&path, 0, 0, 0x0A, &length, &block, &conflict);
    data.reset(block);
    return result == 0 ? Bytes(block, block + length) : Bytes{};
  }

  int length = -7;
  int conflict = 7;
  int result = 0;
  kzddl::Buffer data;
};
INSTANTIATE_TEST_SUITE_P(, CoreCommands, every_way, way_name);

TEST_P(CoreCommands, TestUnitReadySaysWhyAnSgRequestFails) {
  const auto said = [](int result, const std::string &text) { return std::pair(result, text); };
  EXPECT_EQ(ready(), said(0, ""));
  host.inject(node, {.error = EIO});
  if (GetParam().ia64) {
    EXPECT_EQ(ready(), said(-1, ""));
    return;
  }
  EXPECT_EQ(ready(), said(-1, "TUR ioctl failed: Input/output error\n"));
  answer(Reply::check_condition({0x02, 0x04, 0x01}), 1);
  const auto [result, text] = ready();
  EXPECT_EQ(result, -(1 | 8));
  EXPECT_EQ(text.find("TUR ioctl failed: "), 0u);
  EXPECT_EQ(text.find('\n'), text.size() - 1);
  host.fail_open(GetParam().direct() ? node : sim::control_node, ENOENT);
  EXPECT_EQ(ready(), GetParam().direct()
                         ? said(1, "open failed: No such file or directory\n")
                         : said(-19, "TUR ioctl failed: No such file or directory\n"));
}

TEST_P(CoreCommands, InquiryReturnsTheLengthThatTheDataAnnounce) {
  const struct {
    int evpd, length_byte;
    std::uint8_t value;
    int length;
  } cases[] = {{0, 4, 91, 96}, {0, 4, 251, 255}, {1, 3, 10, 14}, {0, 4, 0, 5}, {1, 3, 0, 4}};
  for (const auto &[evpd, length_byte, value, expected] : cases) {
    Bytes reply(255, 0xA5);
    reply[static_cast<std::size_t>(length_byte)] = value;
    answer(Reply::with(reply), 1);
    const bool nothing_follows = value == 0 && GetParam().ia64;
    EXPECT_EQ(inquire(evpd), nothing_follows ? -1 : 0);
    EXPECT_EQ(length, expected);
    ASSERT_EQ(data == nullptr, nothing_follows);
    if (data != nullptr) {
      EXPECT_EQ(data[254], 0xA5) << "all 255 bytes are handed over";
    }
  }
}

// A header, one block descriptor and a page of 12 bytes.
const Bytes page{0x8A, 10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
Bytes answer_with_page() {
  Bytes answer{23, 0, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8};
  for (const std::uint8_t byte : page)
    answer.push_back(byte);
  return answer;
}

TEST_P(CoreCommands, ModeSense) {
  answer(Reply::with(Bytes(255, 255)), 1);
  unsigned char *block = nullptr;
  ASSERT_EQ(do_mode_sense_raw(&path, 1, 2, 0x3F, &length, &block), 0);
  data.reset(block);
  EXPECT_EQ(length, 255) << "capped";

  answer(Reply::with(answer_with_page()), 1);
  EXPECT_EQ(mode_pages(), page);
  EXPECT_EQ(conflict, 0);
  answer(Reply::with({7, 0, 0, 255}), 1);
  EXPECT_EQ(mode_pages(), Bytes{});
  EXPECT_EQ(result, ENOMEM) << "shorter than its descriptors";
  answer(Reply{.status = sim::status::reservation_conflict}, 1);
  mode_pages();
  EXPECT_EQ(result, GetParam().ia64 ? -24 : -12);
  EXPECT_EQ(conflict, GetParam().ia64 ? 0 : 1) << "the legacy path never sets it";
  for (const Reply &other : {Reply{.status = sim::status::busy}, Reply{.error = EIO}}) {
    answer(other, 1);
    mode_pages();
    EXPECT_NE(result, 0);
    EXPECT_EQ(conflict, 0);
  }
}

/// A host's cache of one entry.
class CacheHooks : public CoreCommands {
 protected:
  CacheHooks() {
    static ddl_cache_table table = {
        [] { return std::int32_t{77}; },
        [](std::int32_t thread, std::int32_t kind, std::int32_t length, void *data) {
          EXPECT_EQ(std::pair(thread, kind), std::pair(77, 0));
          const auto *bytes = static_cast<unsigned char *>(data);
          offered.assign(bytes, bytes + length);
          return std::int32_t{-1};
        },
        [](std::int32_t thread, std::int32_t kind, std::int32_t *length, void **data) {
          EXPECT_EQ(std::pair(thread, kind), std::pair(77, 0));
          ++asked;
          if (cached.empty()) return std::int32_t{1};
          *length = static_cast<std::int32_t>(cached.size());
          *data = cached.data();
          return std::int32_t{0};
        }};
    ddl_cache_ops = &table;
  }

  static inline Bytes offered, cached;
  static inline int asked = 0;
};
INSTANTIATE_TEST_SUITE_P(, CacheHooks, testing::Values(indirect_64), way_name);

TEST_P(CacheHooks, StandardDataAreOfferedAfterSuccessOnly) {
  ASSERT_EQ(inquire(0), 0);
  EXPECT_EQ(offered, Bytes(data.get(), data.get() + 96));
  offered.clear();
  answer(Sense{0x05, 0x24, 0x00});
  EXPECT_NE(inquire(0), 0);
  EXPECT_TRUE(offered.empty());
  EXPECT_EQ(asked, 2);
}

TEST_P(CacheHooks, CachedDataAreCopiedAndNothingIsSent) {
  cached = Bytes(36, 0x42);
  ASSERT_EQ(inquire(0), 0);
  EXPECT_EQ(length, 36);
  EXPECT_EQ(Bytes(data.get(), data.get() + 36), cached);
  EXPECT_NE(data.get(), cached.data());
  EXPECT_TRUE(host.take_requests().empty());
  EXPECT_TRUE(offered.empty());
  ASSERT_EQ(inquire(1), 0);
  EXPECT_EQ(length, 4 + 4);
  EXPECT_EQ(asked, 1) << "pages are not their business";
  EXPECT_TRUE(offered.empty());

  const FailMalloc fail(1);
  ASSERT_EQ(inquire(0), 0) << "without memory for the copy the device is asked";
  EXPECT_EQ(length, 96);
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
  return printed(
      [&] { *offset = decode_mode_sense_data(guarded.data(), static_cast<int>(answer.size())); });
}

TEST(Printers, ModeSense) {
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
  // More descriptors, a longer page, less of everything than announced.
  decoded({3, 0, 0, 0xFF, 1, 2}, &offset);
  EXPECT_EQ(offset, 4 + 8 * 31);
  EXPECT_NE(decoded({3, 0, 0, 0, 0x0A, 0xFF, 1}, &offset).find("Byte  2 (# 6) : 0x1\n"),
            std::string::npos);
  EXPECT_EQ(offset, 7);
  for (const Bytes &answer : {Bytes{3, 0, 0, 0}, Bytes{3, 0, 0, 0, 0x0A}}) {
    decoded(answer, &offset);
    EXPECT_EQ(offset, static_cast<int>(answer.size()));
  }
  decoded({1, 2}, &offset);
  decoded({}, &offset);
  for (const char *target : {"lio-path1", "scsi_debug-lun0"}) {
    const Bytes answer =
        capture::load(std::string(KZDDL_TEST_DATA "/") + target + "/mode-sense-all.hex");
    EXPECT_NE(decoded(answer, &offset).find("(page code : 0x1c)"), std::string::npos);
    EXPECT_EQ(offset, static_cast<int>(answer.size()));
  }
}

TEST(Printers, Inquiry) {
  unsigned char data[48] = {0x3F, 0x85, 0xD5, 0xC2, 0x1F, 0xFF, 0xFF, 0xBE};
  std::memcpy(data + 8, "VENDOR  PRODUCT 12345678R1.0SERIAL-12345", 40);
  const std::string expected =
      "\n--------- Inquiry Information\n\n"
      "Peripheral Qualifier/Device Type : 3f\n"
      "Removable bit : 1\n"
      "Device type modifier : 5\n"
      "ISO Version : 3\n"
      "ECMA Version : 2\n"
      "ANSI Version : 5\n"
      "AEN Capability : 1\n"
      "Terminat I/O Capability : 1\n"
      "Additional Length : 1f\n"
      "Relative Addressing : 1\n"
      "32 bit I/O : 0\n"
      "16 bit I/O : 1\n"
      "Sync capabilities : 1\n"
      "Linked command : 1\n"
      "Command Queing : 1\n"
      "Soft Reset : 0\n"
      "Vendor Identification : VENDOR  \n"
      "Product Identification : PRODUCT 12345678\n"
      "Revision Number : R1.0\n";
  EXPECT_EQ(printed([&] { decode_inquiry_data(data, 36); }), expected);
  EXPECT_EQ(printed([&] { decode_inquiry_data(data, 37); }),
            expected + "Serial Number : SERIAL-12345\n");
}

TEST(Printers, ReadCapacity) {
  const auto decoded = [](std::uint64_t blocks, std::uint32_t block_size) {
    const capacity_record record{blocks, block_size};
    return printed([&] { decode_read_capacity_data(&record); });
  };
  EXPECT_EQ(decoded(2097152, 512),
            "\n--------- Read Capacity Information\n\n"
            "Number of logical block : 2097152 (0x200000)\n"
            "Size of logical block : 512 (0x200)\n"
            "Total Disk Capacity : 1.000000 GB\n");
  const struct {
    std::uint64_t blocks;
    std::uint32_t block_size;
    const char *text;
  } cases[] = {
      {(1u << 24) + 1, 0x80000000, "16777217 (0x1000001)"},
      // The count enters in single precision: 2^24 + 1 counts as 2^24, 2^64 - 1 as 2^64.
      {(1u << 24) + 1, 0x80000000, ": 33554432.000000 GB"},
      {~std::uint64_t{0}, 1, ": 17179869184.000000 GB"},
      {0x8000'0000'0000'0001, 512, ": 4398046511104.000000 GB"},
      {123456789, 4097, ": 471.065265 GB"},
  };
  for (const auto &[blocks, block_size, text] : cases)
    EXPECT_NE(decoded(blocks, block_size).find(text), std::string::npos) << text;
}

TEST(Printers, RawData) {
  const unsigned char data[] = {0x00, 0x41, 0xFF};
  const std::string inquiry = "\n--------- Inquiry Data (in raw format)\n\n";
  EXPECT_EQ(printed([&] { dump_inquiry_data(data, 3); }),
            inquiry + std::string("Byte  0 : 0x0\t\0\n", 16) +
                "Byte  1 : 0x41\tA\nByte  2 : 0xff\t\xFF\n");
  EXPECT_EQ(printed([&] { dump_inquiry_data(data, 0); }), inquiry);
  EXPECT_EQ(printed([&] { dump_read_capacity_data(data, 2); }),
            "\n--------- Read Capacity Data (in raw format)\n\n"
            "Byte  0 : 0x0\nByte  1 : 0x41\n");
  EXPECT_EQ(printed([&] { dump_mode_sense_data(data + 1, 1); }),
            "\n--------- Mode Sense Data (in raw format)\n\nByte # 0 : 0x41\n");
}

}  // namespace
}  // namespace kzddl_test
