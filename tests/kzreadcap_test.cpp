// READ CAPACITY: wire bytes and results by every way, and the printers' text.
#include "kzddl/kzreadcap.h"

#include "support/disk_test.h"

namespace kzddl_test {
namespace {

class Capacity : public WayTest {};
INSTANTIATE_TEST_SUITE_P(, Capacity, every_way, way_name);

TEST_P(Capacity, Answers) {
  Bytes reply(32, 0x5A);
  answer(Reply::with(reply));
  for (auto *command : {do_read_capacity, do_read_capacity_16}) {
    // The legacy path knows only the short command.
    const int size = command == do_read_capacity || GetParam().ia64 ? 8 : 32;
    int length = -7;
    unsigned char *data = nullptr;
    ASSERT_EQ(command(&path, 0, 0, 0, &length, &data), 0);
    const kzddl::Buffer owner(data);
    EXPECT_EQ(length, size);
    EXPECT_EQ(Bytes(data, data + size), Bytes(static_cast<std::size_t>(size), 0x5A));
  }
}

std::string decoded(std::uint64_t blocks, std::uint32_t block_size) {
  const capacity_record record{blocks, block_size};
  testing::internal::CaptureStdout();
  decode_read_capacity_data(&record);
  return testing::internal::GetCapturedStdout();
}

TEST(CapacityPrinters, Decode) {
  EXPECT_EQ(decoded(2097152, 512),
            "\n--------- Read Capacity Information\n\n"
            "Number of logical block : 2097152 (0x200000)\n"
            "Size of logical block : 512 (0x200)\n"
            "Total Disk Capacity : 1.000000 GB\n");
  // The count enters in single precision: 2^24 + 1 counts as 2^24, 2^64 - 1 as 2^64.
  EXPECT_NE(decoded((1u << 24) + 1, 0x80000000).find("16777217 (0x1000001)"), std::string::npos);
  EXPECT_NE(decoded((1u << 24) + 1, 0x80000000).find(": 33554432.000000 GB"), std::string::npos);
  EXPECT_NE(decoded(~std::uint64_t{0}, 1).find(": 17179869184.000000 GB"), std::string::npos);
  EXPECT_NE(decoded(0x8000'0000'0000'0001, 512).find(": 4398046511104.000000 GB"),
            std::string::npos);
  EXPECT_NE(decoded(123456789, 4097).find(": 471.065265 GB"), std::string::npos);
}

TEST(CapacityPrinters, Dump) {
  const unsigned char data[] = {0x00, 0xFF};
  testing::internal::CaptureStdout();
  dump_read_capacity_data(data, 2);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\n--------- Read Capacity Data (in raw format)\n\nByte  0 : 0x0\nByte  1 : 0xff\n");
}

}  // namespace
}  // namespace kzddl_test
