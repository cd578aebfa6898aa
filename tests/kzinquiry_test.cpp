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
    answer(Reply::with(reply));
  }

  int length = -7;
  kzddl::Buffer data;
};
class SgInquiry : public Inquiry {};
class LegacyInquiry : public Inquiry {};
INSTANTIATE_TEST_SUITE_P(, Inquiry, every_way, way_name);
INSTANTIATE_TEST_SUITE_P(, SgInquiry, every_sg_way, way_name);
INSTANTIATE_TEST_SUITE_P(, LegacyInquiry, every_legacy_way, way_name);

TEST_P(Inquiry, Wire) {
  ASSERT_EQ(inquire(1, 0x83), 0);
  const Request request = only_request();
  expect_way(request, O_NONBLOCK);
  EXPECT_EQ(request.cdb, (Bytes{0x12, 1, 0x83, 0, 255, 0}));
  if (GetParam().ia64) {
    EXPECT_EQ(request.in_length, 0u);
    EXPECT_EQ(request.out_length, 255u);
  } else {
    expect_header(request, SG_DXFER_FROM_DEV, 255);
  }
  // The two arguments are stored as they come.
  answer(Reply::with(Bytes(255, 1)));
  ASSERT_EQ(inquire(0x1FF, 0x183), 0);
  EXPECT_EQ(only_request().cdb, (Bytes{0x12, 0xFF, 0x83, 0, 255, 0}));
}

TEST_P(Inquiry, ReturnedLength) {
  answer_with(4, 91);
  ASSERT_EQ(inquire(0), 0);
  EXPECT_EQ(length, 96);
  EXPECT_EQ(data[254], 0xA5) << "all 255 bytes are handed over";
}

TEST_P(Inquiry, ReturnedLengthIsCapped) {
  answer_with(4, 251);
  ASSERT_EQ(inquire(0), 0);
  EXPECT_EQ(length, 255);
}

TEST_P(Inquiry, ReturnedLengthOfAPageIsItsLowByte) {
  answer_with(3, 10);
  ASSERT_EQ(inquire(1, 0x80), 0);
  EXPECT_EQ(length, 14);
}

TEST_P(SgInquiry, NoAdditionalDataIsALength) {
  answer(Reply::with(Bytes(255)));
  ASSERT_EQ(inquire(0), 0);
  EXPECT_EQ(length, 5);
  ASSERT_EQ(inquire(1, 0x80), 0);
  EXPECT_EQ(length, 4);
}

TEST_P(LegacyInquiry, NoAdditionalDataIsAFailure) {
  answer(Reply::with(Bytes(255)));
  EXPECT_EQ(inquire(0), -1);
  EXPECT_EQ(length, 5);
  EXPECT_EQ(inquire(1, 0x80), -1);
  EXPECT_EQ(length, 4);
  EXPECT_EQ(data, nullptr);
}

TEST_P(Inquiry, DeviceErrorLeavesTheBufferUnset) {
  answer(Sense{0x05, 0x24, 0x00});
  EXPECT_EQ(inquire(1, 0xC0), GetParam().ia64 ? -2 : -(1 | 8));
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(length, GetParam().ia64 ? 255 : 0);
}

TEST_P(Inquiry, FailedCallGivesItsErrno) {
  fail_ioctl(EPERM);
  EXPECT_EQ(inquire(0), EPERM);
}

TEST_P(Inquiry, NodeThatCannotBeOpened) {
  const bool direct = GetParam().direct();
  host.fail_open(direct ? node : sim::control_node, EBUSY);
  EXPECT_EQ(inquire(0), direct ? EBUSY : -19);
  EXPECT_EQ(length, direct ? -7 : GetParam().ia64 ? 255 : 0) << "the node is opened first";
}

TEST_P(Inquiry, EveryAllocationFailsInTurn) {
  for (long n = 1;; ++n) {
    const FailMalloc fail(n);
    const int result = inquire(0);
    if (!fail.happened()) {
      EXPECT_EQ(result, 0);
      EXPECT_EQ(n, GetParam().ia64 ? 3 : 2) << "one buffer for the data, one for a legacy request";
      break;
    }
    EXPECT_EQ(result, ENOMEM);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(host.open_descriptors(), 0);
  }
}

TEST_F(DiskTest, ExportedVariantsChooseTheirOwnRoute) {
  int length = 0;
  unsigned char *data = nullptr;
  ASSERT_EQ(do_inquiry_32(&path, 0, 0, O_RDONLY, &length, &data), 0);
  std::free(data);
  EXPECT_FALSE(only_request().through_control_node);
  for (const int indirect : {0, 1}) {
    ASSERT_EQ(do_inquiry_old(&path, 0, 0, O_NONBLOCK, &length, &data, indirect), 0);
    EXPECT_EQ(length, 96);
    std::free(data);
    const Request request = only_request();
    EXPECT_EQ(request.form, Request::Form::legacy);
    EXPECT_EQ(request.through_control_node, indirect == 1);
    EXPECT_EQ(request.oflags, unsigned{O_NONBLOCK});
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
