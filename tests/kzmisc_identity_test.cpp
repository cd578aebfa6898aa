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

Bytes identification_page(const std::vector<Descriptor> &descriptors) {
  Bytes page{0, 0x83, 0, 0};
  for (const Descriptor &descriptor : descriptors) {
    page.insert(page.end(), {1, static_cast<std::uint8_t>(descriptor.type_byte), 0,
                             static_cast<std::uint8_t>(descriptor.designator.size())});
    page.insert(page.end(), descriptor.designator.begin(), descriptor.designator.end());
  }
  page[3] = static_cast<std::uint8_t>(page.size() - 4);
  return page;
}

struct Chosen {
  int result;
  std::string id;
  int type;
};

bool operator==(const Chosen &a, const Chosen &b) {
  return a.result == b.result && a.type == b.type && (a.result != 0 || a.id == b.id);
}

void PrintTo(const Chosen &chosen, std::ostream *out) {
  *out << "{" << chosen.result << ", " << chosen.id << ", " << chosen.type << "}";
}

/// Chooses from a page that ends where an inaccessible one begins.
Chosen choose(const Bytes &page) {
  const GuardedPage guarded(page);
  char id[KZDDL_LUN_ID_SIZE + 1] = {};
  id[KZDDL_LUN_ID_SIZE] = '\xEE';
  unsigned char type = 0;
  const int result = get_lun_id_from_83buf(guarded.data(), id, &type);
  EXPECT_EQ(id[KZDDL_LUN_ID_SIZE], '\xEE');
  return {result, id, type};
}

Chosen choose(const std::vector<Descriptor> &descriptors) {
  return choose(identification_page(descriptors));
}

TEST(Designators, PreferenceAmongTypes) {
  const Descriptor vendor{0x00, "vendor"}, t10{0x01, "t10"}, eui{0x02, "eui"}, naa{0x03, "naa"};
  const Descriptor port{0x94, "port"}, group{0x95, "group"};
  EXPECT_EQ(choose({t10, naa}), (Chosen{0, "naa", 3}));
  EXPECT_EQ(choose({naa, t10}), (Chosen{0, "naa", 3}));
  EXPECT_EQ(choose({vendor, t10, eui}), (Chosen{0, "eui", 2}));
  EXPECT_EQ(choose({t10, vendor}), (Chosen{0, "t10", 1}));
  EXPECT_EQ(choose({naa, {0x03, "second"}}), (Chosen{0, "naa", 3})) << "ties keep the earlier";
  EXPECT_EQ(choose({port, naa}), (Chosen{0, "port", 0x94})) << "type 4 first is never displaced";
  EXPECT_EQ(choose({group, port}), (Chosen{0, "port", 0x94}));
  EXPECT_EQ(choose({port, group}), (Chosen{0, "port", 0x94}));
  EXPECT_EQ(choose({naa, group}), (Chosen{0, "naa", 3}));
}

TEST(Designators, TextOrHexadecimal) {
  EXPECT_EQ(choose({{0, "twenty characters!!!"}}), (Chosen{0, "twenty characters!!!", 0}));
  EXPECT_EQ(choose({{0, "a,b"}}), (Chosen{0, "612C62", 0}));
  EXPECT_EQ(choose({{3, std::string(32, '\x9E')}}).id.size(), 64u);
  EXPECT_EQ(choose({{3, std::string(40, '\x9E')}}), (Chosen{-1, "", 3}));
  EXPECT_EQ(choose({{3, ""}}), (Chosen{-1, "", 0xFF}));
  EXPECT_EQ(choose(std::vector<Descriptor>{}), (Chosen{-1, "", 0xFF}));
}

TEST(Designators, HostilePagesAreReadToTheirEndOnly) {
  // The only designator runs past the end: a cut one would name another unit.
  Bytes overrun = identification_page({{3, "12345678"}});
  overrun[7] = 200;
  EXPECT_EQ(choose(overrun), (Chosen{-1, "", 3}));
  // What follows the first descriptor is cut inside its header.
  for (const std::size_t left : {1u, 2u, 3u}) {
    Bytes cut = identification_page({{1, "t10"}, {3, "naa"}});
    cut.resize(4 + 4 + 3 + left);
    cut[3] = static_cast<std::uint8_t>(cut.size() - 4);
    const Chosen chosen = choose(cut);
    EXPECT_EQ(chosen.result, left == 1 ? 0 : -1) << left;
  }
  // A page length that promises more than the 255 bytes that INQUIRY can return.
  Bytes huge(255, 0);
  huge[1] = 0x83;
  huge[3] = 0xFF;
  EXPECT_EQ(choose(huge).result, -1);
}

class Identity : public DiskTest {
 protected:
  void answer_page(std::uint8_t code, Bytes body) {
    Bytes page{0, code, 0, static_cast<std::uint8_t>(body.size())};
    page.insert(page.end(), body.begin(), body.end());
    pages_[code] = std::move(page);
    if (pages_.size() > 1) return;
    host.add({.name = node, .number = number, .device = std::make_shared<Pages>(&pages_)});
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

 private:
  /// A device with these VPD pages and no others.
  struct Pages : sim::Device {
    explicit Pages(const std::map<int, Bytes> *p) : pages(p) {}
    Reply execute(const sim::Command &command, const sim::Port & /*port*/) override {
      const auto page = pages->find(command.cdb[2]);
      if (page == pages->end()) return Reply::check_condition(sim::invalid_field_in_cdb);
      return Reply::with(page->second);
    }
    const std::map<int, Bytes> *pages;
  };

  std::map<int, Bytes> pages_;
};

const Bytes naa_descriptor{1, 3, 0, 8, 0x60, 0x0A, 0x0B, 0x80, 1, 2, 3, 4};

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
  answer_page(0x00, {0x00, 0x80});
  EXPECT_EQ(lun_id(0), (Chosen{0, "fallback", 0xFF})) << "the page is not listed";
  EXPECT_EQ(lun_id(0x83), (Chosen{0, "fallback", 0xFF})) << "the page cannot be read";
  answer_page(0x00, {});
  EXPECT_EQ(lun_id(0), (Chosen{0, "fallback", 0xFF}));
  answer_page(0x83, {});
  EXPECT_EQ(lun_id(0x83, std::string(100, 'n')), (Chosen{0, std::string(64, 'n'), 0xFF}));
}

TEST_F(Identity, OnlyAnUnreadableListIsReported) {
  answer(Sense{0x05, 0x24, 0x00});
  EXPECT_EQ(lun_id(0), (Chosen{-9, "", 0x77}));
  EXPECT_EQ(lun_id(0x83), (Chosen{0, "fallback", 0xFF}));
  EXPECT_EQ(lun_id(0x80), (Chosen{-1, "", 0x77})) << "not a page of identifiers";
}

TEST_F(Identity, ListOfPagesThatLiesAboutItsLength) {
  answer_page(0x00, Bytes(251, 0x01));
  answer_page(0x83, naa_descriptor);
  Bytes lying{0, 0, 0, 255};
  lying.resize(255, 0x01);
  answer(Reply::with(lying), 1);
  EXPECT_EQ(lun_id(0), (Chosen{0, "fallback", 0xFF}));
}

TEST_F(Identity, CabinetSerial) {
  answer_page(0x00, {0x00, 0x80});
  answer_page(0x80, Bytes(10, 'S'));
  EXPECT_EQ(cabinet_id(), std::string(10, 'S'));
  answer_page(0x80, Bytes(40, 'S'));
  EXPECT_EQ(cabinet_id(), std::string(32, 'S'));
  Bytes with_nul(12, 'A');
  with_nul[5] = 0;
  answer_page(0x80, with_nul);
  EXPECT_EQ(cabinet_id(), "414141414100414141414141");
  answer_page(0x80, Bytes(17, 0x01));
  EXPECT_EQ(cabinet_id(), "-1") << "34 digits do not fit";
  answer_page(0x80, Bytes(255, 'S'));
  EXPECT_EQ(cabinet_id(), "-1") << "the page is longer than what came";
  answer_page(0x00, {0x00, 0x83});
  EXPECT_EQ(cabinet_id(), "-1");
  answer(Sense{0x05, 0x24, 0x00});
  EXPECT_EQ(cabinet_id(), "-1");
}

TEST_F(Identity, DeviceNumber) {
  EXPECT_EQ(find_device_number(node), number) << "all 64 bits";
  testing::internal::CaptureStdout();
  EXPECT_EQ(find_device_number("/dev/nothing/here"), ~std::uint64_t{0});
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "stat failed for the device /dev/nothing/here\n");
}

TEST(Captures, IdentifiersOfRealTargets) {
  const auto chosen = [](const std::string &target) {
    return choose(capture::load(KZDDL_TEST_DATA "/" + target + "/vpd-83.hex"));
  };
  EXPECT_EQ(chosen("lio-path1"), (Chosen{0, "60014054C7A9E025B1D4F3E9A600D2C8", 0x03}));
  EXPECT_EQ(chosen("lio-path2"), chosen("lio-path1")) << "two paths, one disk";
  EXPECT_EQ(chosen("scsi_debug-lun0"), (Chosen{0, "33333330000007D0", 0x03}));
  EXPECT_EQ(chosen("scsi_debug-lun1"), (Chosen{0, "33333330000007D1", 0x03}));
}

}  // namespace
}  // namespace kzddl_test
