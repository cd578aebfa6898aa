// PERSISTENT RESERVE OUT and IN: wire, the two passes, and results of their own.
#include "kzddl/kzpgr.h"

#include "base/bytes.h"
#include "support/disk_test.h"

namespace kzddl_test {
namespace {

class Pgr : public WayTest {
 protected:
  std::uint32_t out(unsigned service_action = 1, unsigned scope = 0, unsigned type = 5) {
    pgr_out_param param{};
    for (unsigned char i = 0; i < 8; ++i) {
      param.key[i] = i;
      param.service_action_key[i] = static_cast<unsigned char>(0x10 + i);
    }
    param.scope_address = 0x01020304;
    param.flags = 1;
    return do_pgr_out(&path, service_action, scope, type, &param);
  }

  std::uint32_t in() {
    pgr_in_data stale{};
    pgr_in_data *result = &stale;
    const std::uint32_t code = do_pgr_in(&path, 0x100, &result);
    EXPECT_NE(result, &stale);
    data.reset(result);
    EXPECT_EQ(code == PGR_OK, data != nullptr);
    return code;
  }

  /// A reply that announces `announced` bytes and brings `present`.
  void answer_keys(std::uint32_t announced, std::size_t present, int times = -1) {
    Bytes reply(8 + present, 0xAB);
    kzddl::store_be32(reply.data(), 77);
    kzddl::store_be32(reply.data() + 4, announced);
    answer(Reply::with(reply), times);
  }

  kzddl::Owned<pgr_in_data> data;
};
INSTANTIATE_TEST_SUITE_P(, Pgr, testing::Values(direct, indirect_64, legacy_indirect), way_name);

TEST_P(Pgr, InTwoPasses) {
  answer_keys(16, 16);
  EXPECT_EQ(in(), static_cast<unsigned>(PGR_OK));
  EXPECT_EQ(data->generation, 77u);
  EXPECT_EQ(data->length, 16u);
  EXPECT_EQ(data->data[0], 0xAB);
  const auto requests = host.take_requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].cdb, (Bytes{0x5E, 0, 0, 0, 0, 0, 0, 0, 12, 0}));
  EXPECT_EQ(requests[0].out_length, 12u);
  EXPECT_EQ(requests[1].cdb, (Bytes{0x5E, 0, 0, 0, 0, 0, 0, 0, 28, 0}));
  EXPECT_EQ(requests[1].out_length, 28u);
}

TEST_P(Pgr, InEmptyListStillTakesTwoPasses) {
  answer_keys(0, 0);
  EXPECT_EQ(in(), static_cast<unsigned>(PGR_OK));
  EXPECT_EQ(data->length, 0u);
  EXPECT_EQ(host.take_requests().size(), 2u);
}

TEST_P(Pgr, InListThatChangesBetweenThePasses) {
  answer_keys(16, 16, 1);
  answer_keys(8, 8, 1);  // a key went away: the length stays the first pass's
  EXPECT_EQ(in(), static_cast<unsigned>(PGR_OK));
  EXPECT_EQ(data->length, 16u);
  answer_keys(8, 8, 1);
  answer_keys(800, 800, 1);  // many came: only what was asked for is there
  EXPECT_EQ(in(), static_cast<unsigned>(PGR_OK));
  EXPECT_EQ(data->length, 8u);
}

TEST_P(Pgr, InHostileLengths) {
  answer_keys(0xFFFFFFFF, 4);
  EXPECT_EQ(in(), static_cast<unsigned>(PGR_ERROR)) << "over the kernel's limit";
  EXPECT_EQ(host.take_requests()[0].out_length, 12u);
}

TEST_P(Pgr, ResultCodes) {
  const auto result = [this](Reply reply) {
    answer(std::move(reply), 2);
    const std::uint32_t code = out();
    EXPECT_EQ(in(), code);
    return code;
  };
  EXPECT_EQ(result(Reply::check_condition({0x05, 0x20, 0x00})),
            static_cast<unsigned>(PGR_UNSUPPORTED));
  for (const Sense other : {Sense{0x05, 0x20, 0x01}, Sense{0x25, 0x20, 0x00},
                            Sense{0x05, 0x24, 0x00}, Sense{0x06, 0x20, 0x00}}) {
    EXPECT_EQ(result(Reply::check_condition(other)), static_cast<unsigned>(PGR_CHECK_CONDITION));
  }
  EXPECT_EQ(result({.status = sim::status::reservation_conflict}),
            static_cast<unsigned>(PGR_CONFLICT));
  EXPECT_EQ(result({.status = sim::status::busy}), static_cast<unsigned>(PGR_ERROR));
  fail_ioctl(EIO);
  EXPECT_EQ(out(), static_cast<unsigned>(PGR_ERROR));
  host.fail_open(GetParam().direct() ? node : sim::control_node, EACCES);
  EXPECT_EQ(out(), static_cast<unsigned>(PGR_ERROR));
  EXPECT_EQ(in(), static_cast<unsigned>(PGR_ERROR));
}

TEST_P(Pgr, InSecondPassFails) {
  answer_keys(8, 8, 1);
  answer(Reply{.status = sim::status::reservation_conflict}, 1);
  EXPECT_EQ(in(), static_cast<unsigned>(PGR_CONFLICT));
}

}  // namespace
}  // namespace kzddl_test
