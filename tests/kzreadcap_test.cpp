// READ CAPACITY: wire bytes and results by every way, and the printers' text.
#include "kzddl/kzreadcap.h"

#include "support/disk_test.h"
#include "support/failing_malloc.h"

namespace kzddl_test {
namespace {

const Bytes capacity_10{0x00, 0x1F, 0xFF, 0xFF, 0, 0, 2, 0};

class Capacity : public WayTest {
 protected:
  using Command = int (*)(odh *, int, unsigned, int, int *, unsigned char **);

  int read(Command command = do_read_capacity, unsigned lba = 0) {
    unsigned char *buffer = nullptr;
    const int result = command(&path, 3, lba, 5, &length, &buffer);
    data.reset(buffer);
    return result;
  }

  unsigned expected_oflags() const { return GetParam().direct() ? O_RDONLY : O_NONBLOCK; }

  int length = -7;
  kzddl::Buffer data;
};
INSTANTIATE_TEST_SUITE_P(, Capacity, every_way, way_name);

TEST_P(Capacity, Wire10) {
  answer(Reply::with(capacity_10));
  ASSERT_EQ(read(do_read_capacity, 0x12345678), 0);
  EXPECT_EQ(length, 8);
  EXPECT_EQ(Bytes(data.get(), data.get() + 8), capacity_10);
  const Request request = only_request();
  expect_way(request, expected_oflags());
  EXPECT_EQ(request.cdb, (Bytes{0x25, 1, 0x12, 0x34, 0x56, 0x78, 0, 0, 1, 0}));
  if (GetParam().ia64) {
    EXPECT_EQ(request.in_length, 0u);
    EXPECT_EQ(request.out_length, 24u);
  } else {
    expect_header(request, SG_DXFER_FROM_DEV, 8);
  }
}

TEST_P(Capacity, Wire16AlwaysGoesThroughTheControlNode) {
  Bytes reply(32, 0x5A);
  answer(Reply::with(reply));
  ASSERT_EQ(read(do_read_capacity_16, 0x12345678), 0);
  const Request request = only_request();
  EXPECT_TRUE(request.through_control_node);
  EXPECT_EQ(request.oflags, unsigned{O_NONBLOCK});
  if (GetParam().ia64) {  // the legacy path knows only the short command
    EXPECT_EQ(length, 8);
    EXPECT_EQ(request.cdb[0], 0x25);
  } else {
    EXPECT_EQ(length, 32);
    EXPECT_EQ(request.cdb,
              (Bytes{0x9E, 0x10, 0, 0, 0, 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 32, 1, 0}));
    EXPECT_EQ(request.header.dxfer_len, 32u);
    EXPECT_EQ(data[31], 0x5A);
  }
}

TEST_P(Capacity, FailuresLeaveTheBufferUnset) {
  const bool legacy = GetParam().ia64;
  host.inject(node, {.reply = Reply::check_condition({0x02, 0x04, 0x01})});
  EXPECT_EQ(read(), legacy ? -2 : -(1 | 8));
  EXPECT_EQ(length, legacy ? 24 : 0);
  EXPECT_EQ(data, nullptr);
  host.inject(node, {.error = EIO});
  EXPECT_EQ(read(), EIO);
  length = -7;
  host.fail_open(GetParam().direct() ? node : sim::control_node, EACCES);
  EXPECT_EQ(read(), GetParam().direct() ? EACCES : -19);
  EXPECT_EQ(length, GetParam().direct() ? -7 : legacy ? 24 : 0);
}

TEST_P(Capacity, EveryAllocationFailsInTurn) {
  answer(Reply::with(capacity_10));
  const long allocations = GetParam().ia64 ? 2 : 1;
  for (long n = 1; n <= allocations; ++n) {
    const FailMalloc fail(n);
    EXPECT_EQ(read(), ENOMEM);
    EXPECT_EQ(data, nullptr);
  }
  const FailMalloc fail(allocations + 1);
  EXPECT_EQ(read(), 0);
  EXPECT_FALSE(fail.happened());
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
