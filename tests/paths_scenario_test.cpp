// Whole scenarios over two paths and two hosts, through the library alone: what a program that
// manages paths does when one fails, and what hosts that share a disk see of each other.
#include <optional>

#include "base/bytes.h"
#include "support/disk_test.h"

namespace kzddl_test {
namespace {

constexpr std::size_t block = 512;
constexpr unsigned optimized = 0;
constexpr unsigned standby = 2;
constexpr unsigned unavailable = 3;

/// A disk behind two ports, each in a group of its own, and two hosts that reach both.
class PathsScenario : public WayTest {
 protected:
  PathsScenario() {
    const auto disk = std::make_shared<sim::Disk>(
        sim::DiskSpec{.naa = {0x60, 1, 2, 3, 4, 5, 6, 7},
                      .answers_page_0 = true,
                      .groups = {{.id = 1, .preferred = true, .ports = {1}},
                                 {.id = 2, .state = sim::AccessState::standby, .ports = {2}}}});
    const auto add = [&](const char *name, std::uint16_t port, const char *initiator) {
      odh way{};
      std::strcpy(way.devname, name);
      way.dev = way.blkdev = next_number++;
      host.add({.name = name,
                .number = way.dev,
                .device = disk,
                .port = {.relative_id = port, .group = port},
                .initiator = initiator});
      return way;
    };
    a1 = add("/dev/a1", 1, "a");
    a2 = add("/dev/a2", 2, "a");
    b1 = add("/dev/b1", 1, "b");
    b2 = add("/dev/b2", 2, "b");
  }

  static int write(odh &way, unsigned lba, std::uint8_t byte) {
    Bytes data(block, byte);
    return do_diskio(&way, lba, 1, data.data(), KZDDL_DISKIO_WRITE);
  }

  /// The first byte of a block; nothing when it cannot be read.
  static std::optional<int> read(odh &way, unsigned lba) {
    Bytes data(block);
    if (do_diskio(&way, lba, 1, data.data(), KZDDL_DISKIO_READ) != 0) return std::nullopt;
    return data[0];
  }

  static unsigned group_of(odh &way) {
    unsigned group = 0, port = 0, unit_group = 0;
    int length = 0;
    unsigned char *page = nullptr;
    EXPECT_EQ(do_inquiry(&way, 1, 0x83, O_RDONLY, &length, &page), 0);
    const kzddl::Buffer owner(page);
    get_dev_id_page(page, nullptr, &group, &port, &unit_group);
    return group;
  }

  /// The state of the path's own group, as the path itself tells it.
  static int state_of(odh &way) {
    unsigned char *reply = nullptr;
    EXPECT_EQ(do_rtpg(&way, &reply), 0);
    const kzddl::Buffer owner(reply);
    return get_owner_state(reply, static_cast<int>(group_of(way)));
  }

  static int set_state(odh &way, unsigned group, unsigned state) {
    unsigned char list[8] = {};
    list[4] = static_cast<unsigned char>(state);
    kzddl::store_be16(&list[6], static_cast<std::uint16_t>(group));
    return do_stpg(&way, list, sizeof list);
  }

  enum Action : unsigned { reg = 0, reserve = 1, release = 2, preempt = 4 };

  static unsigned change(odh &way, Action action, std::uint64_t key, std::uint64_t other_key = 0) {
    constexpr unsigned exclusive_access = 3;
    pgr_out_param parameters{};
    kzddl::store_be64(parameters.key, key);
    kzddl::store_be64(parameters.service_action_key, other_key);
    return do_pgr_out(&way, action, 0, exclusive_access, &parameters);
  }

  /// Registered keys; the result of the command instead of them when it fails.
  static std::vector<std::uint64_t> keys(odh &way, unsigned expected = PGR_OK) {
    pgr_in_data *data = nullptr;
    EXPECT_EQ(do_pgr_in(&way, 0, &data), expected);
    const kzddl::Owned<pgr_in_data> owner(data);
    std::vector<std::uint64_t> list;
    for (unsigned at = 0; data != nullptr && at < data->length; at += 8)
      list.push_back(kzddl::load_be64(data->data + at));
    return list;
  }

  dev_t next_number = 0x800;
  odh a1{}, a2{}, b1{}, b2{};
};
INSTANTIATE_TEST_SUITE_P(, PathsScenario, testing::Values(direct, indirect_64, indirect_32),
                         way_name);

TEST_P(PathsScenario, FailOverToTheOtherPath) {
  EXPECT_EQ(write(a1, 7, 0xA1), 0);
  EXPECT_EQ(write(a2, 7, 0xFF), -1) << "a standby path moves no data";
  EXPECT_EQ(state_of(a1), static_cast<int>(optimized));
  EXPECT_EQ(state_of(a2), static_cast<int>(standby));

  // The other host takes the active path's group away.
  ASSERT_EQ(set_state(b2, 1, unavailable), 0);
  EXPECT_EQ(read(a1, 7), std::nullopt) << "unit attention";
  EXPECT_EQ(read(a1, 7), std::nullopt) << "target port unavailable";

  // The states are read through the path that is left, past its own unit attention.
  host.take_requests();
  unsigned char *reply = nullptr;
  ASSERT_EQ(do_rtpg(&a2, &reply), 0);
  const kzddl::Buffer owner(reply);
  EXPECT_EQ(host.take_requests().size(), 2u);
  EXPECT_EQ(get_owner_state(reply, 1), static_cast<int>(unavailable));
  EXPECT_EQ(get_owner_state(reply, 2), static_cast<int>(standby));
  EXPECT_EQ(get_other_pref_state(reply, 2), 0x80) << "the failed group is the preferred one";

  ASSERT_EQ(set_state(a2, group_of(a2), optimized), 0);
  EXPECT_EQ(read(a2, 7), 0xA1) << "what was written through the failed path";
  EXPECT_EQ(write(a2, 8, 0xA2), 0);

  // Back again, and the other host's path carries on after a unit attention for each change.
  ASSERT_EQ(set_state(a2, 1, optimized), 0);
  EXPECT_EQ(state_of(b1), static_cast<int>(optimized));
  EXPECT_EQ(read(b1, 8), 0xA2);
}

TEST_P(PathsScenario, TwoHostsReserve) {
  const std::uint64_t key_a = 0xA, key_b = 0xB;
  EXPECT_EQ(change(a1, reg, 0, key_a), static_cast<unsigned>(PGR_OK));
  EXPECT_EQ(change(b1, reg, 0, key_b), static_cast<unsigned>(PGR_OK));
  EXPECT_EQ(keys(b1), (std::vector{key_a, key_b}));
  EXPECT_EQ(change(a1, reserve, key_a), static_cast<unsigned>(PGR_OK));

  // The conflict, as each command shows it.
  EXPECT_EQ(write(a1, 7, 0xA1), 0);
  EXPECT_EQ(write(b1, 7, 0xB1), -1);
  EXPECT_EQ(read(b1, 7), std::nullopt);
  EXPECT_EQ(do_diskio(&b1, 7, 1, nullptr, KZDDL_DISKIO_PROBE),
            GetParam().direct() ? -1 : KZDDL_DISKIO_CONFLICT);
  EXPECT_EQ(do_diskio_chk_rsvn(&b1), KZDDL_DISKIO_CONFLICT);
  EXPECT_EQ(do_diskio_chk_rsvn(&a1), 0);
  EXPECT_EQ(change(b1, reserve, key_b), static_cast<unsigned>(PGR_CONFLICT));

  // Taken over: the first host is told once, and then kept out itself.
  EXPECT_EQ(change(b1, preempt, key_b, key_a), static_cast<unsigned>(PGR_OK));
  keys(a1, PGR_CHECK_CONDITION);
  EXPECT_EQ(keys(a1), (std::vector{key_b}));
  EXPECT_EQ(do_diskio_chk_rsvn(&a1), KZDDL_DISKIO_CONFLICT);
  EXPECT_EQ(change(a1, reserve, key_a), static_cast<unsigned>(PGR_CONFLICT));
  EXPECT_EQ(read(b1, 7), 0xA1);

  EXPECT_EQ(change(b1, release, key_b), static_cast<unsigned>(PGR_OK));
  EXPECT_EQ(do_diskio_chk_rsvn(&a1), 0);
  EXPECT_EQ(write(a1, 7, 0xA2), 0);
  EXPECT_EQ(read(b1, 7), 0xA2);
}

}  // namespace
}  // namespace kzddl_test
