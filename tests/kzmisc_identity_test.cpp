// Identity of units and cabinets: choice of designator, fallbacks, hostile pages, captures.
#include "capture/capture.h"
#include "support/disk_test.h"
#include "support/guarded_page.h"

namespace kzddl_test {
namespace {

struct Descriptor {
  int type_byte;
  std::string designator;
};
using Descriptors = std::vector<Descriptor>;

Bytes page_of(const Descriptors &descriptors) {
  Bytes page{0, 0x83, 0, 0};
  for (const auto &[type_byte, designator] : descriptors) {
    page.insert(page.end(), {1, static_cast<std::uint8_t>(type_byte), 0,
                             static_cast<std::uint8_t>(designator.size())});
    page.insert(page.end(), designator.begin(), designator.end());
  }
  page[3] = static_cast<std::uint8_t>(page.size() - 4);
  return page;
}

/// Result, identifier (none after a failure) and type.
using Chosen = std::tuple<int, std::string, int>;

/// Chooses from a page that ends where an inaccessible one begins.
Chosen choose(const Bytes &page) {
  const GuardedPage guarded(page);
  char id[KZDDL_LUN_ID_SIZE + 1] = {};
  id[KZDDL_LUN_ID_SIZE] = '\xEE';
  unsigned char type = 0;
  const int result = get_lun_id_from_83buf(guarded.data(), id, &type);
  EXPECT_EQ(id[KZDDL_LUN_ID_SIZE], '\xEE');
  return {result, result == 0 ? id : "", type};
}

TEST(Designators, PreferenceAndForm) {
  const Descriptor vendor{0x00, "vendor"}, t10{0x01, "t10"}, eui{0x02, "eui"}, naa{0x03, "naa"};
  const Descriptor port{0x94, "port"}, group{0x95, "group"};
  const struct {
    const char *what;
    Descriptors descriptors;
    Chosen chosen;
  } cases[] = {
      {"NAA before T10", {t10, naa}, {0, "naa", 3}},
      {"wherever it stands", {naa, t10}, {0, "naa", 3}},
      {"EUI before T10 and vendor", {vendor, t10, eui}, {0, "eui", 2}},
      {"T10 before vendor", {t10, vendor}, {0, "t10", 1}},
      {"ties keep the earlier", {naa, {0x03, "second"}}, {0, "naa", 3}},
      {"type 4 first is never displaced", {port, naa}, {0, "port", 0x94}},
      {"type 4 displaces 5", {group, port}, {0, "port", 0x94}},
      {"but not the other way round", {port, group}, {0, "port", 0x94}},
      {"5 displaces nothing", {naa, group}, {0, "naa", 3}},
      {"text", {{0, "twenty characters!!!"}}, {0, "twenty characters!!!", 0}},
      {"hexadecimal", {{0, "a,b"}}, {0, "612C62", 0}},
      {"64 digits fit", {{3, std::string(32, '\xEE')}}, {0, std::string(64, 'E'), 3}},
      {"80 do not", {{3, std::string(40, '\xEE')}}, {-1, "", 3}},
      {"an empty one is none", {{3, ""}}, {-1, "", 0xFF}},
      {"none", {}, {-1, "", 0xFF}},
  };
  for (const auto &[what, descriptors, chosen] : cases)
    EXPECT_EQ(choose(page_of(descriptors)), chosen) << what;
}

TEST(Designators, HostilePagesAreReadToTheirEndOnly) {
  // The only designator runs past the end: a cut one would name another unit.
  Bytes overrun = page_of({{3, "12345678"}});
  for (const std::uint8_t length : {9, 200}) {
    overrun[7] = length;
    EXPECT_EQ(choose(overrun), (Chosen{-1, "", 3}));
  }
  // What follows the first descriptor is cut inside its header.
  for (const std::size_t left : {1u, 2u, 3u}) {
    Bytes cut = page_of({{1, "t10"}, {3, "naa"}});
    cut.resize(4 + 4 + 3 + left);
    cut[3] = static_cast<std::uint8_t>(cut.size() - 4);
    EXPECT_EQ(std::get<0>(choose(cut)), left == 1 ? 0 : -1) << left;
  }
  // A page length that promises more than the 255 bytes that INQUIRY can return.
  Bytes huge(255, 0);
  huge[1] = 0x83;
  huge[3] = 0xFF;
  EXPECT_EQ(std::get<0>(choose(huge)), -1);
}

TEST(Designators, Captured) {
  const auto chosen = [](const std::string &target) {
    return choose(capture::load(KZDDL_TEST_DATA "/" + target + "/vpd-83.hex"));
  };
  EXPECT_EQ(chosen("lio-path1"), (Chosen{0, "60014054C7A9E025B1D4F3E9A600D2C8", 0x03}));
  EXPECT_EQ(chosen("lio-path2"), chosen("lio-path1")) << "two paths, one disk";
  EXPECT_EQ(chosen("scsi_debug-lun0"), (Chosen{0, "33333330000007D0", 0x03}));
  EXPECT_EQ(chosen("scsi_debug-lun1"), (Chosen{0, "33333330000007D1", 0x03}));
}

class Identity : public DiskTest {
 protected:
  /// A device with these VPD pages and no others.
  void use_pages(const std::map<int, Bytes> &pages) {
    use_device(std::make_shared<Answering>([pages](const sim::Command &command) {
      const auto page = pages.find(command.cdb[2]);
      if (page == pages.end()) return Reply::check_condition(sim::invalid_field_in_cdb);
      Bytes reply{0, command.cdb[2], 0, static_cast<std::uint8_t>(page->second.size())};
      reply.insert(reply.end(), page->second.begin(), page->second.end());
      return Reply::with(reply);
    }));
  }

  Chosen lun_id(int page, const std::string &fallback = "fallback") {
    char id[KZDDL_LUN_ID_SIZE] = "untouched";
    unsigned char type = 0x77;
    const int result = get_lun_id(&path, page, id, &type, fallback.c_str());
    return {result, id, type};
  }

  std::string cabinet_id() {
    char serial[KZDDL_CABINET_ID_SIZE];
    std::memset(serial, '?', sizeof serial);
    const int result = get_cabinet_id(&path, serial);
    return result == 0 ? serial : std::to_string(result);
  }
};

TEST_F(Identity, AsksForTheListFirstOnlyWithPage0) {
  EXPECT_EQ(lun_id(0), (Chosen{0, "600A0B8001020304", 3}));
  auto requests = host.take_requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].cdb, (Bytes{0x12, 1, 0x00, 0, 255, 0}));
  EXPECT_EQ(requests[1].cdb, (Bytes{0x12, 1, 0x83, 0, 255, 0}));
  EXPECT_EQ(requests[0].oflags, 0u);
  EXPECT_EQ(lun_id(0x83), (Chosen{0, "600A0B8001020304", 3}));
  EXPECT_EQ(host.take_requests().size(), 1u);
}

TEST_F(Identity, FallbackName) {
  const Chosen fallback{0, "fallback", 0xFF};
  use_pages({{0x00, {0x00, 0x80}}});
  EXPECT_EQ(lun_id(0), fallback) << "the page is not listed";
  EXPECT_EQ(lun_id(0x83), fallback) << "the page cannot be read";
  use_pages({{0x00, {}}, {0x83, {}}});
  EXPECT_EQ(lun_id(0), fallback);
  EXPECT_EQ(lun_id(0x83, std::string(100, 'n')), (Chosen{0, std::string(64, 'n'), 0xFF}));
  // A list that lies about its length, before pages that are there.
  use_pages({{0x00, Bytes(251, 0x01)}, {0x83, {1, 3, 0, 8, 0x60, 0x0A, 0x0B, 0x80, 1, 2, 3, 4}}});
  Bytes lying{0, 0, 0, 255};
  lying.resize(255, 0x01);
  answer(Reply::with(lying), 1);
  EXPECT_EQ(lun_id(0), fallback);
  // Only a list that cannot be read is reported.
  answer(Sense{0x05, 0x24, 0x00});
  EXPECT_EQ(lun_id(0), (Chosen{-9, "untouched", 0x77}));
  EXPECT_EQ(lun_id(0x83), fallback);
  EXPECT_EQ(lun_id(0x80), (Chosen{-1, "untouched", 0x77})) << "not a page of identifiers";
}

TEST_F(Identity, CabinetSerial) {
  const Bytes list{0x00, 0x80};
  Bytes with_nul(12, 'A');
  with_nul[5] = 0;
  const std::pair<Bytes, std::string> cases[] = {
      {Bytes(10, 'S'), std::string(10, 'S')},
      {Bytes(40, 'S'), std::string(32, 'S')},
      {with_nul, "414141414100414141414141"},
      {Bytes(17, 0x01), "-1"},  // 34 digits do not fit
      {Bytes(255, 'S'), "-1"},  // the page is longer than what came
  };
  for (const auto &[serial, expected] : cases) {
    use_pages({{0x00, list}, {0x80, serial}});
    EXPECT_EQ(cabinet_id(), expected);
  }
  use_pages({{0x00, {0x00, 0x83}}, {0x80, Bytes(10, 'S')}});
  EXPECT_EQ(cabinet_id(), "-1") << "not listed";
  answer(Sense{0x05, 0x24, 0x00});
  EXPECT_EQ(cabinet_id(), "-1");
}

TEST_F(Identity, DeviceNumber) {
  EXPECT_EQ(find_device_number(node), number) << "all 64 bits";
  std::uint64_t found = 0;
  EXPECT_EQ(printed([&] { found = find_device_number("/dev/nothing/here"); }),
            "stat failed for the device /dev/nothing/here\n");
  EXPECT_EQ(found, ~std::uint64_t{0});
}

}  // namespace
}  // namespace kzddl_test
