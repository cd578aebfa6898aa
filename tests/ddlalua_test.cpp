// Port group and identification decoders, each on bytes that end before an inaccessible page.
#include "kzddl/ddlalua.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/bytes.h"
#include "capture/capture.h"
#include "support/guarded_page.h"

namespace kzddl_test {
namespace {

using Bytes = capture::Bytes;

struct Group {
  int owner;
  int preferred;
  int other_preferred;

  bool operator==(const Group &) const = default;
};

void PrintTo(const Group &group, std::ostream *out) {
  *out << "{" << group.owner << ", " << group.preferred << ", " << group.other_preferred << "}";
}

/// What the three decoders say of a group, in a reply buffer of 255 bytes.
Group group_in(Bytes reply, int group) {
  reply.resize(255);
  const GuardedPage guarded(reply);
  return {get_owner_state(guarded.data(), group), get_pref_state(guarded.data(), group),
          get_other_pref_state(guarded.data(), group)};
}

TEST(PortGroups, StatesAndPreference) {
  const Bytes one{0, 0, 0, 12, 0x82, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
  EXPECT_EQ(group_in(one, 1), (Group{2, 0x80, 0}));
  EXPECT_EQ(group_in(one, 2), (Group{-1, -1, 0x80}));
  EXPECT_EQ(group_in({0, 0, 0, 0, 0x82, 0, 0, 1}, 1), (Group{-1, -1, 0})) << "nothing promised";
  EXPECT_EQ(group_in({0x80, 0, 0, 0, 0x82, 0, 0, 1}, 1), (Group{-1, -1, 0})) << "negative";
  EXPECT_EQ(group_in({0, 0, 0, 1, 0x8F, 0, 0, 1}, 1), (Group{15, 0x80, 0}))
      << "the first descriptor is always looked at";
}

TEST(PortGroups, WalksByThePortCount) {
  Bytes reply(4 + 16 + 8);
  reply[3] = 24;
  reply[6] = 0x01, reply[7] = 0x02, reply[11] = 2;  // group 0x102 with two ports
  reply[20] = 0x83, reply[23] = 7;
  EXPECT_EQ(group_in(reply, 7), (Group{3, 0x80, 0}));
  EXPECT_EQ(group_in(reply, 0x102), (Group{0, 0, 0x80}));
  reply[3] = 16;  // the second one is not promised
  EXPECT_EQ(group_in(reply, 7), (Group{-1, -1, 0}));
}

TEST(PortGroups, FirstOfTwoAlikeDecides) {
  const Bytes reply{0, 0, 0, 16, 0x01, 0, 0, 1, 0, 0, 0, 0, 0x82, 0, 0, 1, 0, 0, 0, 0};
  EXPECT_EQ(group_in(reply, 1), (Group{1, 0, 0}));
}

TEST(PortGroups, NeverPastThe255BytesOfAReply) {
  Bytes lying(255, 0x00);
  kzddl::store_be32(lying.data(), 0x7FFFFFFF);
  EXPECT_EQ(group_in(lying, 9), (Group{-1, -1, 0}));
  lying[11] = 60;  // the next descriptor begins at byte 252: its number is cut
  EXPECT_EQ(group_in(lying, 9), (Group{-1, -1, 0}));
  lying[11] = 255;
  EXPECT_EQ(group_in(lying, 9), (Group{-1, -1, 0}));
}

TEST(PortGroups, Captured) {
  const auto captured = [](const char *target) {
    return capture::load(std::string(KZDDL_TEST_DATA "/") + target +
                         "/report-target-port-groups.hex");
  };
  EXPECT_EQ(group_in(captured("lio-path1"), 0), (Group{0, 0, 0x80}));
  EXPECT_EQ(group_in(captured("lio-path1"), 2), (Group{1, 0x80, 0}));
  EXPECT_EQ(group_in(captured("scsi_debug-lun0"), 0x100), (Group{0, 0, 0}));
  EXPECT_EQ(group_in(captured("scsi_debug-lun0"), 0x180), (Group{3, 0, 0}));
}

struct PathIdentity {
  std::string naa = "unset";
  unsigned port_group = 0xEEEE;
  unsigned relative_port = 0xEEEE;
  unsigned unit_group = 0xEEEE;

  bool operator==(const PathIdentity &) const = default;
};

void PrintTo(const PathIdentity &path, std::ostream *out) {
  *out << "{" << path.naa << ", " << path.port_group << ", " << path.relative_port << ", "
       << path.unit_group << "}";
}

PathIdentity identity_of(const Bytes &page) {
  const GuardedPage guarded(page);
  PathIdentity path;
  char naa[KZDDL_NAA_TEXT_SIZE] = "unset";
  EXPECT_EQ(
      get_dev_id_page(guarded.data(), naa, &path.port_group, &path.relative_port, &path.unit_group),
      0);
  path.naa = naa;
  return path;
}

/// A page of these descriptors, whole or cut.
Bytes page_of(const Bytes &descriptors) {
  Bytes page(4 + descriptors.size());
  page[1] = 0x83, page[2] = 0x7F, page[3] = static_cast<std::uint8_t>(descriptors.size());
  std::copy(descriptors.begin(), descriptors.end(), page.begin() + 4);
  return page;
}

TEST(IdentificationPage, Captured) {
  const auto captured = [](const char *target) {
    return capture::load(std::string(KZDDL_TEST_DATA "/") + target + "/vpd-83.hex");
  };
  EXPECT_EQ(identity_of(captured("lio-path1")),
            (PathIdentity{"60014054C7A9E025B1D4F3E9A600D2C8", 0, 1, 0}));
  EXPECT_EQ(identity_of(captured("lio-path2")),
            (PathIdentity{"60014054C7A9E025B1D4F3E9A600D2C8", 2, 2, 0}));
  // The NAA designator of 8 bytes is read with the 8 bytes that follow it.
  EXPECT_EQ(identity_of(captured("scsi_debug-lun0")),
            (PathIdentity{"33333330000007D06194000400000001", 0x100, 1, 0xEEEE}));
}

TEST(IdentificationPage, AssociationsAndCodeSets) {
  EXPECT_EQ(identity_of(page_of({})), PathIdentity{});
  EXPECT_EQ(identity_of(page_of({1, 0x05, 0, 4, 0, 0, 0, 9, 1, 0x16, 0, 4, 0, 0, 0, 9})),
            PathIdentity{})
      << "a port group of a unit, a unit group of a port";
  EXPECT_EQ(identity_of(page_of({2, 0x14, 0, 4, 0, 0, 0, 9, 1, 0x04, 0, 4, 0, 0, 0, 9})),
            PathIdentity{})
      << "not binary, not of a port";
  EXPECT_EQ(
      identity_of(page_of({0x61, 0x94, 0, 4, 0, 0, 0, 9, 1, 0x14, 0, 4, 1, 2, 3, 4})).relative_port,
      0x01020304u)
      << "the last match wins";
}

TEST(IdentificationPage, BytesPastItsEndCountAsZero) {
  EXPECT_EQ(identity_of(page_of({1, 3, 0, 8, 0xAB, 0xCD})).naa, "ABCD0000000000000000000000000000");
  EXPECT_EQ(identity_of(page_of({1, 0x15, 0, 4, 1, 2})).port_group, 0x01020000u);
  EXPECT_EQ(identity_of(page_of({1})), PathIdentity{});
  Bytes full(255, 0);
  full[3] = 0xFF;
  full[4] = 1, full[5] = 3, full[7] = 243 - 4;
  full[247] = 1, full[248] = 3;  // a descriptor whose header is at the very end
  EXPECT_EQ(identity_of(full).naa, std::string(32, '0'));
}

TEST(IdentificationPage, NaaTextMayBeNull) {
  const Bytes page = page_of({1, 3, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8});
  unsigned unused = 0;
  EXPECT_EQ(get_dev_id_page(page.data(), nullptr, &unused, &unused, &unused), 0);
}

}  // namespace
}  // namespace kzddl_test
