// Disk I/O: chunks on the wire, odd sizes against what a device stores, conflicts by route.
#include "kzddl/kzdiskio.h"

#include <numeric>

#include "base/bytes.h"
#include "support/disk_test.h"
#include "support/failing_malloc.h"

namespace kzddl_test {
namespace {

constexpr std::size_t block = 512;

class DiskIo : public WayTest {
 protected:
  DiskIo() {
    use_device(std::make_shared<Answering>([this](const sim::Command &command) {
      const auto at = blocks.begin() + kzddl::load_be32(&command.cdb[2]) * std::ptrdiff_t{block};
      const auto end = at + kzddl::load_be16(&command.cdb[7]) * std::ptrdiff_t{block};
      if (end > blocks.end()) return Reply::check_condition({0x05, 0x21, 0x00});
      if (command.cdb[0] == 0x28) return Reply::with({at, end});
      std::copy(command.data_out.begin(), command.data_out.end(), at);
      return Reply{};
    }));
  }

  static Bytes pattern(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
      bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 512);
    return bytes;
  }

  Bytes blocks = Bytes(64 * block);  ///< what the device stores
};
// Both routes send the legacy request on every machine.
INSTANTIATE_TEST_SUITE_P(, DiskIo, testing::Values(direct, indirect_64, legacy_indirect), way_name);

TEST_P(DiskIo, ChunksOfAtMostEightBlocks) {
  EXPECT_EQ(do_diskio(&path, 0, 0, nullptr, KZDDL_DISKIO_READ), 0);
  EXPECT_TRUE(host.take_requests().empty());
  Bytes data = pattern(20 * block);
  {
    const CountMalloc allocations;
    EXPECT_EQ(do_diskio(&path, 5, 20, data.data(), KZDDL_DISKIO_WRITE), 0);
    EXPECT_EQ(allocations.count(), 1) << "one buffer for all chunks";
  }
  const auto requests = host.take_requests();
  ASSERT_EQ(requests.size(), 3u);
  const std::uint8_t sizes[] = {8, 8, 4};
  for (std::size_t i = 0; i < 3; ++i) {
    const Request &request = requests[i];
    EXPECT_EQ(request.cdb,
              (Bytes{0x2A, 0, 0, 0, 0, static_cast<std::uint8_t>(5 + 8 * i), 0, 0, sizes[i], 0}));
    EXPECT_EQ(request.in_length, sizes[i] * block);
    EXPECT_EQ(request.out_length, 0u);
    EXPECT_EQ(request.form, Request::Form::legacy);
    EXPECT_EQ(request.through_control_node, !GetParam().direct());
    EXPECT_EQ(request.oflags, GetParam().direct() ? unsigned{O_RDONLY} : unsigned{O_NONBLOCK});
  }
}

TEST_P(DiskIo, OddSizesAgainstWhatIsStored) {
  for (const unsigned count : {1u, 3u, 7u, 8u, 9u, 16u, 23u}) {
    Bytes data = pattern(count * block);
    blocks.assign(64 * block, 0);
    ASSERT_EQ(do_diskio(&path, 11, count, data.data(), KZDDL_DISKIO_WRITE), 0);
    Bytes expected(64 * block);
    std::copy(data.begin(), data.end(), expected.begin() + 11 * block);
    EXPECT_EQ(blocks, expected) << count;
    Bytes back(count * block + 1, 0xEE);
    ASSERT_EQ(do_diskio(&path, 11, count, back.data(), KZDDL_DISKIO_READ), 0);
    EXPECT_EQ(back.back(), 0xEE);
    back.pop_back();
    EXPECT_EQ(back, data) << count;
    // The count has 16 bits; any other operation reads and returns nothing.
    Bytes untouched(block, 0xEE);
    EXPECT_EQ(do_diskio(&path, 11, 0x10001, untouched.data(), 7), 0);
    EXPECT_EQ(untouched, Bytes(block, 0xEE));
    host.take_requests();
  }
}

TEST_P(DiskIo, AFailedChunkEndsTheCall) {
  Bytes data = pattern(20 * block);
  EXPECT_EQ(do_diskio(&path, 50, 20, data.data(), KZDDL_DISKIO_WRITE), -1);
  EXPECT_EQ(host.take_requests().size(), 2u);
  EXPECT_EQ(Bytes(blocks.begin() + 50 * block, blocks.begin() + 58 * block),
            Bytes(data.begin(), data.begin() + 8 * block));
}

TEST_P(DiskIo, ConflictIsToldApartByTheIndirectProbeOnly) {
  Bytes data(block);
  for (const std::uint8_t status : {sim::status::reservation_conflict, std::uint8_t{12}}) {
    answer(Reply{.status = status}, 2);
    EXPECT_EQ(do_diskio(&path, 0, 1, data.data(), KZDDL_DISKIO_PROBE),
              GetParam().direct() ? -1 : KZDDL_DISKIO_CONFLICT);
    EXPECT_EQ(do_diskio(&path, 0, 1, data.data(), KZDDL_DISKIO_READ), -1);
  }
  host.fail_open(GetParam().direct() ? node : sim::control_node, EACCES);
  EXPECT_EQ(do_diskio(&path, 0, 1, data.data(), KZDDL_DISKIO_PROBE), -1);
}

class ReservationCheck : public WayTest {};
INSTANTIATE_TEST_SUITE_P(, ReservationCheck, every_sg_way, way_name);

TEST_P(ReservationCheck, AsksWithModeSense) {
  answer(Reply::with({3, 0, 0, 0}), 1);
  EXPECT_EQ(do_diskio_chk_rsvn(&path), 0);
  EXPECT_EQ(only_request().cdb, (Bytes{0x1A, 0, 0, 0, 255, 0}));
  answer(Reply{.status = sim::status::reservation_conflict}, 1);
  EXPECT_EQ(do_diskio_chk_rsvn(&path), KZDDL_DISKIO_CONFLICT);
  answer(Sense{0x05, 0x24, 0});
  EXPECT_EQ(do_diskio_chk_rsvn(&path), -1);
}

}  // namespace
}  // namespace kzddl_test
