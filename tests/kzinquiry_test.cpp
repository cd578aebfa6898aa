// INQUIRY: wire, returned length in all its cases, cache hooks, and the printers' text.
#include "support/disk_test.h"
#include "support/failing_malloc.h"

namespace kzddl_test {
namespace {

class Inquiry : public WayTest {
 protected:
  int inquire(int evpd, int page = 0, int oflags = O_NONBLOCK) {
    unsigned char *buffer = nullptr;
    const int result = do_inquiry(&path, evpd, page, oflags, &length, &buffer);
    data.reset(buffer);
    return result;
  }

  /// A device that answers 255 bytes whose length field is as given.
  void answer_with(int length_byte, std::uint8_t value) {
    Bytes reply(255, 0xA5);
    reply[static_cast<std::size_t>(length_byte)] = value;
    answer(Reply::with(reply), 1);
  }

  int length = -7;
  kzddl::Buffer data;
};
INSTANTIATE_TEST_SUITE_P(, Inquiry, every_way, way_name);

TEST_P(Inquiry, ReturnedLength) {
  const struct {
    int evpd, length_byte;
    std::uint8_t value;
    int length;
  } cases[] = {{0, 4, 91, 96}, {0, 4, 251, 255}, {1, 3, 10, 14}, {0, 4, 0, 5}, {1, 3, 0, 4}};
  for (const auto &[evpd, length_byte, value, expected] : cases) {
    answer_with(length_byte, value);
    const bool nothing_follows = value == 0 && GetParam().ia64;
    EXPECT_EQ(inquire(evpd, evpd != 0 ? 0x80 : 0), nothing_follows ? -1 : 0);
    EXPECT_EQ(length, expected);
    ASSERT_EQ(data == nullptr, nothing_follows);
    if (data != nullptr) {
      EXPECT_EQ(data[254], 0xA5) << "all 255 bytes are handed over";
    }
  }
}

/// A host's cache of one entry.
class CacheHooks : public DiskTest {
 protected:
  CacheHooks() {
    static ddl_cache_table table = {
        [] { return std::int32_t{77}; },
        [](std::int32_t thread, std::int32_t kind, std::int32_t length, void *data) {
          EXPECT_EQ(thread, 77);
          EXPECT_EQ(kind, 0);
          const auto *bytes = static_cast<unsigned char *>(data);
          offered.assign(bytes, bytes + length);
          return std::int32_t{-1};
        },
        [](std::int32_t thread, std::int32_t kind, std::int32_t *length, void **data) {
          EXPECT_EQ(thread, 77);
          EXPECT_EQ(kind, 0);
          ++asked;
          if (cached.empty()) return std::int32_t{1};
          *length = static_cast<std::int32_t>(cached.size());
          *data = cached.data();
          return std::int32_t{0};
        }};
    ddl_cache_ops = &table;
    offered.clear();
    cached.clear();
    asked = 0;
  }

  int inquire(int evpd) {
    unsigned char *buffer = nullptr;
    const int result = do_inquiry(&path, evpd, evpd != 0 ? 0x80 : 0, 0, &length, &buffer);
    data.reset(buffer);
    return result;
  }

  static inline Bytes offered;
  static inline Bytes cached;
  static inline int asked;
  int length = 0;
  kzddl::Buffer data;
};

TEST_F(CacheHooks, StandardDataAreOfferedAfterSuccessOnly) {
  ASSERT_EQ(inquire(0), 0);
  EXPECT_EQ(offered, Bytes(data.get(), data.get() + 96));
  offered.clear();
  answer(Sense{0x05, 0x24, 0x00});
  EXPECT_NE(inquire(0), 0);
  EXPECT_TRUE(offered.empty());
  EXPECT_EQ(asked, 2);
}

TEST_F(CacheHooks, CachedDataAreCopiedAndNothingIsSent) {
  cached = Bytes(36, 0x42);
  ASSERT_EQ(inquire(0), 0);
  EXPECT_EQ(length, 36);
  EXPECT_EQ(Bytes(data.get(), data.get() + 36), cached);
  EXPECT_NE(data.get(), cached.data());
  EXPECT_TRUE(host.take_requests().empty());
  EXPECT_TRUE(offered.empty());

  // Without memory for the copy the device is asked.
  const FailMalloc fail(1);
  ASSERT_EQ(inquire(0), 0);
  EXPECT_EQ(length, 96);
}

TEST_F(CacheHooks, PagesAreNotTheirBusiness) {
  cached = Bytes(36, 0x42);
  ASSERT_EQ(inquire(1), 0);
  EXPECT_EQ(length, 4 + 4);
  EXPECT_EQ(asked, 0);
  EXPECT_TRUE(offered.empty());
}

TEST(InquiryPrinters, Decode) {
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
  testing::internal::CaptureStdout();
  decode_inquiry_data(data, 36);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
  testing::internal::CaptureStdout();
  decode_inquiry_data(data, 37);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected + "Serial Number : SERIAL-12345\n");
}

TEST(InquiryPrinters, Dump) {
  const unsigned char data[] = {0x00, 0x41, 0xFF};
  testing::internal::CaptureStdout();
  dump_inquiry_data(data, 3);
  dump_inquiry_data(data, 0);
  const std::string heading = "\n--------- Inquiry Data (in raw format)\n\n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            heading + std::string("Byte  0 : 0x0\t\0\n", 16) +
                "Byte  1 : 0x41\tA\nByte  2 : 0xff\t\xFF\n" + heading);
}

}  // namespace
}  // namespace kzddl_test
