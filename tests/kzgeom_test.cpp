// Geometry: worked examples by every way, the fit to a label, the cache and the attribute.
#include "kzddl/kzgeom.h"

#include <random>
#include <thread>

#include "base/bytes.h"
#include "kzddl/ddl_name_value_api.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "kzddl/kzmisc_geometry.h"
#include "kzddl/solgeom.h"
#include "support/disk_test.h"
#include "support/log_capture.h"

namespace kzddl_test {
namespace {

/// A disk of which the geometry code asks all it can answer.
struct GeometryDisk : sim::Device {
  std::uint64_t last_lba = 9'999'999;
  std::uint32_t block_length = 512;
  std::uint16_t sectors = 63;
  std::uint16_t bytes_per_sector = 512;
  std::uint32_t cylinders = 622;
  std::uint8_t heads = 255;
  std::uint8_t page_length = 22;
  std::size_t capacity_16_size = 32;

  Reply execute(const sim::Command &command, const sim::Port & /*port*/) override {
    switch (command.cdb[0]) {
      case 0x1A:
        return mode_page(command.cdb[2]);
      case 0x25: {
        Bytes data(8);
        kzddl::store_be32(
            &data[0], last_lba > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<std::uint32_t>(last_lba));
        kzddl::store_be32(&data[4], block_length);
        return Reply::with(data);
      }
      case 0x9E: {
        Bytes data(32);
        kzddl::store_be64(&data[0], last_lba);
        kzddl::store_be32(&data[8], block_length);
        return Reply::with(data);
      }
      default:
        return Reply::check_condition(sim::invalid_operation_code);
    }
  }

 private:
  Reply mode_page(std::uint8_t code) const {
    Bytes answer(4 + 2 + page_length);
    answer[0] = static_cast<std::uint8_t>(answer.size() - 1);
    std::uint8_t *page = &answer[4];
    page[0] = code;
    page[1] = page_length;
    if (page_length < 22) return Reply::with(answer);
    if (code == 3) {
      kzddl::store_be16(page + 10, sectors);
      kzddl::store_be16(page + 12, bytes_per_sector);
    } else {
      kzddl::store_be32(page + 1, cylinders);
      page[1] = page_length;
      page[5] = heads;
      kzddl::store_be16(page + 20, 7200);
    }
    return Reply::with(answer);
  }
};

class Geometry : public WayTest {
 protected:
  Geometry() { host.add({.name = node, .number = number, .device = disk}); }

  int read() {
    std::memset(&geom, 0xEE, sizeof geom);
    return gen_get_geometry_info(path, &geom);
  }

  std::shared_ptr<GeometryDisk> disk = std::make_shared<GeometryDisk>();
  disk_geom geom{};
};
INSTANTIATE_TEST_SUITE_P(, Geometry, every_way, way_name);

TEST_P(Geometry, WorkedExamples) {
  constexpr std::uint32_t derived = KZDDL_GEOM_DERIVED;
  const struct {
    std::uint64_t last_lba;
    std::uint32_t block_length;
    disk_geom expected;
  } cases[] = {
      {9'999'999, 512, {63, 622, 255, 512, 7200, 0, 10'000'000, {}}},
      {9'999'999, 4096, {63, 4979, 255, 512, 7200, derived, 80'000'000, {}}},
      {9'999'999, 256, {63, 0, 255, 512, 7200, derived, 0, {}}},
      {8'589'934'591, 512, {126, 65535, 1040, 512, 7200, derived, 8'589'934'592, {}}},
  };
  for (const auto &[last_lba, block_length, expected] : cases) {
    disk->last_lba = last_lba;
    disk->block_length = block_length;
    if (last_lba > 0xFFFFFFFF && GetParam().ia64) {
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
  for (const auto &[sectors, heads, page_length] :
       {std::tuple{63, 0, 22}, {0, 255, 22}, {63, 255, 20}, {63, 255, 24}}) {
    disk->sectors = static_cast<std::uint16_t>(sectors);
    disk->heads = static_cast<std::uint8_t>(heads);
    disk->page_length = static_cast<std::uint8_t>(page_length);
    EXPECT_EQ(read(), EINVAL);
  }
  disk->page_length = 22;
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
  std::uint32_t cyl = 70000;
  std::uint32_t nsect = 32;
  std::uint32_t nhead = 16;
  EXPECT_EQ(vol_sol_lbl_adj_geom(&cyl, &nsect, &nhead, 35840000), 0);
  EXPECT_EQ(cyl, 35000u);
  EXPECT_EQ(nsect, 32u);
  EXPECT_EQ(nhead, 32u);
  // Equal counts: the heads are the ones that grow. No divisor, no fit.
  cyl = 131072, nsect = nhead = 16;
  EXPECT_EQ(vol_sol_lbl_adj_geom(&cyl, &nsect, &nhead, 1 << 25), 0);
  EXPECT_EQ(nsect, 16u);
  EXPECT_EQ(nhead, 64u);
  cyl = 65537, nsect = 63, nhead = 0;
  EXPECT_EQ(vol_sol_lbl_adj_geom(&cyl, &nsect, &nhead, 1 << 30), 22);
  // A last quotient that does not fit 32 bits.
  cyl = 65537, nsect = 1, nhead = 1;
  EXPECT_EQ(vol_sol_lbl_adj_geom(&cyl, &nsect, &nhead, ~std::uint64_t{0}), 22);
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
    host.add({.name = "/dev/kz/jox/m0", .number = block_number, .device = disk});
    host.add({.name = "/dev/kz/rjox/m0", .number = number, .device = disk});
    name_node("m0");
  }

  static void name_node(const char *name) {
    const char *const disks[] = {node, nullptr};
    const char *const names[] = {name, nullptr};
    set_property("DISK", disks);
    set_property("JOX_DEVICE", names);
    set_asso("DISK", node, "JOX_DEVICE", name);
  }

  static constexpr dev_t block_number = 0x0000'4321'0000'8765;
  std::shared_ptr<GeometryDisk> disk = std::make_shared<GeometryDisk>();
};

TEST_F(GeometryCache, AsksOnceAndAgainWhenForced) {
  disk_geom *first = nullptr;
  ASSERT_EQ(ddl_get_geometry(node, &first, 0), 0);
  EXPECT_EQ(first->cylinders, 622u);
  const auto requests = host.take_requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].node, "/dev/kz/rjox/m0");
  EXPECT_EQ(disk_geom_headp->blkdev, block_number);

  disk_geom *second = nullptr;
  ASSERT_EQ(ddl_get_geometry(node, &second, 0xFE), 0);
  EXPECT_EQ(second, first);
  EXPECT_TRUE(host.take_requests().empty());

  const LogCapture log;
  disk->heads = 16;
  ASSERT_EQ(ddl_get_geometry(node, &second, KZDDL_GEOMETRY_REFRESH), 0);
  EXPECT_EQ(second->heads, 16u);
  EXPECT_EQ(host.take_requests().size(), 3u);
  EXPECT_EQ(disk_geom_headp->next, nullptr) << "one entry for each block device";
  EXPECT_EQ(log.text(),
            "get_dynamic_geometry: Forcing refresh of information for /dev/sdx:/dev/kz/rjox/m0\n");
}

TEST_F(GeometryCache, NothingIsCachedOnFailure) {
  disk->heads = 0;
  disk_geom *geom = nullptr;
  EXPECT_EQ(ddl_get_geometry(node, &geom, 0), 1);
  EXPECT_EQ(geom, nullptr);
  EXPECT_EQ(disk_geom_headp, nullptr);
  disk->heads = 255;
  EXPECT_EQ(ddl_get_geometry(node, &geom, 0), 0);
  disk->heads = 0;
  EXPECT_EQ(ddl_get_geometry(node, &geom, KZDDL_GEOMETRY_REFRESH), 1);
  EXPECT_EQ(disk_geom_headp, nullptr) << "the old entry is gone";
}

TEST_F(GeometryCache, MissingPieces) {
  const LogCapture log;
  disk_geom *geom = nullptr;
  EXPECT_EQ(ddl_get_geometry("/dev/other", &geom, 0), 1);
  EXPECT_EQ(log.text(), "");
  delete_asso("DISK", node, "JOX_DEVICE", "m0");
  name_node("gone");
  EXPECT_EQ(ddl_get_geometry(node, &geom, 0), 1);
  EXPECT_EQ(log.text(), "get_dynamic_geometry:stat on node /dev/kz/jox/gone failed. \n");
  delete_asso("DISK", node, "JOX_DEVICE", "gone");
  name_node(std::string(120, 'n').c_str());  // the directory does not fit before it
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

TEST_F(GeometryCache, RefreshesAndAttributesFromManyThreads) {
  setenv("KZ_DEBUG_FILE", "/dev/null", 1);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      dip record{};
      std::strcpy(record.path, node);
      for (int n = 0; n < 200; ++n) {
        if (i == 0) {
          disk_geom *geom = nullptr;
          EXPECT_EQ(ddl_get_geometry(node, &geom, KZDDL_GEOMETRY_REFRESH), 0);
          continue;
        }
        char **list = nullptr;
        EXPECT_EQ(get_dynamic_geometry(record, "DISK_GEOMETRY", &list), 0);
        nv_free(list);
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
}

}  // namespace
}  // namespace kzddl_test
