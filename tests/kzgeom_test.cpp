// Geometry: worked examples by every way, the fit to a label, the cache and the attribute.
#include "kzddl/kzgeom.h"

#include <array>
#include <random>

#include "kzddl/kzmisc_geometry.h"
#include "kzddl/solgeom.h"
#include "support/disk_test.h"
#include "support/failing_malloc.h"
#include "support/log_capture.h"
#include "support/property_test.h"

namespace kzddl_test {
namespace {

sim::DiskSpec disk_of(std::uint64_t blocks = 10'000'000, std::uint32_t block_size = 512,
                      int sectors = 63, int heads = 255) {
  return {.blocks = blocks,
          .block_size = block_size,
          .geometry = sim::Geometry{.sectors = static_cast<std::uint16_t>(sectors),
                                    .heads = static_cast<std::uint8_t>(heads),
                                    .cylinders = 622,
                                    .bytes_per_sector = 512}};
}

class Geometry : public WayTest {
 protected:
  int read() {
    std::memset(&geom, 0xEE, sizeof geom);
    return gen_get_geometry_info(path, &geom);
  }

  disk_geom geom{};
};
INSTANTIATE_TEST_SUITE_P(, Geometry, every_way, way_name);

TEST_P(Geometry, WorkedExamples) {
  constexpr std::uint32_t derived = KZDDL_GEOM_DERIVED;
  const struct {
    std::uint64_t blocks;
    std::uint32_t block_size;
    disk_geom expected;
  } cases[] = {
      {10'000'000, 512, {63, 622, 255, 512, 7200, 0, 10'000'000, {}}},
      {10'000'000, 4096, {63, 4979, 255, 512, 7200, derived, 80'000'000, {}}},
      {10'000'000, 256, {63, 0, 255, 512, 7200, derived, 0, {}}},
      {8'589'934'592, 512, {126, 65535, 1040, 512, 7200, derived, 8'589'934'592, {}}},
  };
  for (const auto &[blocks, block_size, expected] : cases) {
    use_disk(disk_of(blocks, block_size));
    if (blocks > 0xFFFFFFFF && GetParam().ia64) {
      EXPECT_EQ(read(), EINVAL) << "the legacy request has no READ CAPACITY(16)";
      continue;
    }
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(std::memcmp(&geom, &expected, sizeof geom), 0)
        << geom.cylinders << "/" << geom.sectors_per_track << "/" << geom.heads << ", "
        << geom.capacity << " sectors, flags " << geom.flags;
  }
}

TEST_P(Geometry, CommandsThatFail) {
  for (const auto &[sectors, heads] : {std::pair{63, 0}, {0, 255}}) {
    use_disk(disk_of(10'000'000, 512, sectors, heads));
    EXPECT_EQ(read(), EINVAL);
  }
  use_disk(disk_of());
  for (const int longer : {-2, 2}) {
    host.inject(node, {.opcode = 0x1A, .change = [longer](Reply &reply) {
                         reply.data.resize(reply.data.size() + static_cast<std::size_t>(longer));
                         reply.data[0] = static_cast<std::uint8_t>(reply.data.size() - 1);
                       }});
    EXPECT_EQ(read(), EINVAL) << "a page of another size";
  }
  for (const std::uint8_t opcode : {std::uint8_t{0x1A}, std::uint8_t{0x25}}) {
    host.inject(node, {.opcode = opcode, .reply = Reply::check_condition({0x05, 0x24, 0})});
    EXPECT_EQ(read(), GetParam().ia64 ? -2 : -9);
  }
  EXPECT_EQ(get_geometry_info("/dev/nothing/here", &geom), -1);
  EXPECT_EQ(get_geometry_info(("/" + std::string(255, 'x')).c_str(), &geom), -1);
}

/// What a fit must achieve, whichever way it was found.
void expect_fitted(std::uint32_t cyl, std::uint32_t nsect, std::uint32_t nhead,
                   std::uint64_t capacity) {
  std::uint32_t c = cyl;
  std::uint32_t s = nsect;
  std::uint32_t h = nhead;
  const int result = vol_sol_lbl_adj_geom(&c, &s, &h, capacity);
  SCOPED_TRACE(testing::Message() << cyl << "/" << nsect << "/" << nhead << " of " << capacity
                                  << " gave " << c << "/" << s << "/" << h << ": " << result);
  if (nsect > 65535 || nhead > 255) {
    EXPECT_EQ(result, 22);
    EXPECT_TRUE(c == cyl && s == nsect && h == nhead);
    return;
  }
  if (cyl <= 65535) {
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(c == cyl && s == nsect && h == nhead);
    return;
  }
  if (result != 0) {
    EXPECT_EQ(result, 22);
    return;
  }
  EXPECT_LE(c, 65535u);
  EXPECT_LE(s, 65535u);
  EXPECT_LE(h, 65535u);
  const std::uint64_t covered = std::uint64_t{c} * s * h;  // 48 bits
  const std::uint64_t before = std::uint64_t{cyl} * nsect * nhead;
  if (covered == before) return;  // traded exactly
  // Otherwise as much of the capacity as a whole step of one count can cover.
  EXPECT_EQ(c, 65535u);
  EXPECT_TRUE(covered <= capacity);
  EXPECT_TRUE(capacity - covered < std::uint64_t{c} * std::max(s, h));
}

TEST(LabelFit, WorkedExamples) {
  const struct {
    std::uint32_t cyl, nsect, nhead;
    std::uint64_t capacity;
    int result;
    std::uint32_t fitted_cyl, fitted_nsect, fitted_nhead;
  } cases[] = {
      {70000, 32, 16, 35840000, 0, 35000, 32, 32},
      {131072, 16, 16, 1 << 25, 0, 32768, 16, 64},        // equal counts: the heads grow
      {65537, 63, 0, 1 << 30, 22, 65537, 63, 0},          // no divisor
      {65537, 1, 1, ~std::uint64_t{0}, 22, 65537, 1, 1},  // a last quotient over 32 bits
  };
  for (const auto &c : cases) {
    std::uint32_t cyl = c.cyl, nsect = c.nsect, nhead = c.nhead;
    EXPECT_EQ(vol_sol_lbl_adj_geom(&cyl, &nsect, &nhead, c.capacity), c.result);
    if (c.result != 0) continue;
    EXPECT_EQ((std::array{cyl, nsect, nhead}),
              (std::array{c.fitted_cyl, c.fitted_nsect, c.fitted_nhead}));
  }
}

TEST(LabelFit, RandomInputsMeetThePostConditions) {
  std::mt19937_64 random(20261122);
  for (int i = 0; i < 200000; ++i) {
    const auto up_to = [&random](unsigned bits) {
      return random() >> (63 - random() % bits);  // all magnitudes alike
    };
    expect_fitted(static_cast<std::uint32_t>(up_to(32)), static_cast<std::uint32_t>(up_to(17)),
                  static_cast<std::uint32_t>(up_to(9)), up_to(63));
  }
}

class GeometryCache : public DiskTest {
 protected:
  GeometryCache() {
    init_property_list(nullptr);
    use_multipath_disk(255);
    name_node("m0");
  }

  void use_multipath_disk(int heads) {
    const auto disk = std::make_shared<sim::Disk>(disk_of(10'000'000, 512, 63, heads));
    host.add({.name = "/dev/kz/jox/m0", .number = block_number, .device = disk});
    host.add({.name = "/dev/kz/rjox/m0", .number = number, .device = disk});
  }

  static void name_node(const std::string &name) { relate("DISK", node, "JOX_DEVICE", name); }

  static constexpr dev_t block_number = 0x0000'4321'0000'8765;
  disk_geom *geom = nullptr;
};

TEST_F(GeometryCache, AsksOnceAndAgainWhenForced) {
  ASSERT_EQ(ddl_get_geometry(node, &geom, 0), 0);
  const disk_geom *first = geom;
  EXPECT_EQ(first->cylinders, 622u);
  const auto requests = host.take_requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].node, "/dev/kz/rjox/m0");
  EXPECT_EQ(disk_geom_headp->blkdev, block_number);

  ASSERT_EQ(ddl_get_geometry(node, &geom, 0xFE), 0);
  EXPECT_EQ(geom, first);
  EXPECT_TRUE(host.take_requests().empty());

  const LogCapture log;
  use_multipath_disk(16);
  ASSERT_EQ(ddl_get_geometry(node, &geom, KZDDL_GEOMETRY_REFRESH), 0);
  EXPECT_EQ(geom->heads, 16u);
  EXPECT_EQ(host.take_requests().size(), 3u);
  EXPECT_EQ(disk_geom_headp->next, nullptr) << "one entry for each block device";
  EXPECT_EQ(log.text(),
            "get_dynamic_geometry: Forcing refresh of information for /dev/sdx:/dev/kz/rjox/m0\n");
  {
    const CountMalloc watch;
    for (int i = 0; i < 3; ++i)
      EXPECT_EQ(ddl_get_geometry(node, &geom, KZDDL_GEOMETRY_REFRESH), 0);
    EXPECT_EQ(live_blocks(), 1) << "old entries are freed";
  }
  use_multipath_disk(0);
  geom = nullptr;
  EXPECT_EQ(ddl_get_geometry(node, &geom, KZDDL_GEOMETRY_REFRESH), 1);
  EXPECT_EQ(geom, nullptr);
  EXPECT_EQ(disk_geom_headp, nullptr) << "nothing is cached on failure, the old entry is gone";
}

TEST_F(GeometryCache, MissingPieces) {
  const LogCapture log;
  EXPECT_EQ(ddl_get_geometry("/dev/other", &geom, 0), 1);
  EXPECT_EQ(log.text(), "");
  dissociate("DISK", node, "JOX_DEVICE", "m0");
  name_node("gone");
  EXPECT_EQ(ddl_get_geometry(node, &geom, 0), 1);
  EXPECT_EQ(log.text(), "get_dynamic_geometry:stat on node /dev/kz/jox/gone failed. \n");
  dissociate("DISK", node, "JOX_DEVICE", "gone");
  name_node(std::string(120, 'n'));  // the directory does not fit before it
  EXPECT_EQ(ddl_get_geometry(node, &geom, 0), 1);
  EXPECT_NE(log.text().find(" is too long. \n"), std::string::npos);
  EXPECT_TRUE(host.take_requests().empty());
}

TEST_F(GeometryCache, AttributeHoldsTheRecord) {
  dip record{};
  std::strcpy(record.path, node);
  char **list = nullptr;
  EXPECT_EQ(get_dynamic_geometry(record, "GEOMETRY", &list), 1);
  ASSERT_EQ(get_dynamic_geometry(record, "DISK_GEOMETRY", &list), 0);
  EXPECT_EQ(list[1], nullptr);
  char **values = nullptr;
  ASSERT_EQ(nv_get_value(list[0], &values), 1);
  EXPECT_EQ(Bytes(values[0], values[0] + 3), (Bytes{0x1B, 0x80, 48}));
  EXPECT_EQ(std::memcmp(values[0] + 3, &disk_geom_headp->geom, sizeof(disk_geom)), 0);
  nv_free(values);
  nv_free(list);
}

}  // namespace
}  // namespace kzddl_test
