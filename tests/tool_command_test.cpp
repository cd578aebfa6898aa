// What the tool stands on: commands with sense data, their outcomes in words, and discovery.
#include "support/disk_test.h"
#include "tools/command.h"
#include "tools/discovery.h"
#include "tools/readiness.h"
#include "tools/reservations.h"

namespace kzddl_test {
namespace {

using tool::Device;

TEST(SenseWords, FormatsAndLengths) {
  const std::pair<Bytes, std::string> cases[] = {
      {Sense{0x05, 0x24, 0x00}.fixed(), "ILLEGAL REQUEST: INVALID FIELD IN CDB"},
      // The valid bit and the bits beside the key are not part of them.
      {{0xF1, 0, 0xE3, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x11, 0x00},
       "deferred MEDIUM ERROR: UNRECOVERED READ ERROR"},
      {{0x72, 0x02, 0x04, 0x0B, 0, 0, 0, 0},
       "NOT READY: LOGICAL UNIT NOT ACCESSIBLE, TARGET PORT IN STANDBY STATE"},
      // A byte that is not there reads as 0.
      {{0x73, 0x06, 0x29},
       "deferred UNIT ATTENTION: POWER ON, RESET, OR BUS DEVICE RESET OCCURRED"},
      {{0x70, 0, 0x0B, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x80, 0xFE}, "ABORTED COMMAND: ASC 80 ASCQ FE"},
      {{0x70, 0}, "none"},
      {{0x7F, 0, 5, 0}, "none"},
      {{}, "none"},
  };
  for (const auto &[data, words] : cases) {
    const auto sense = tool::parse_sense(data);
    EXPECT_EQ(sense ? tool::sense_words(*sense) : "none", words);
  }
}

class ToolCommand : public WayTest {
 protected:
  /// "ready", "not ready: " and the reason, or what made it an error.
  std::string readiness() {
    try {
      return tool::test_unit_ready(device).words();
    } catch (const tool::Error &error) {
      EXPECT_EQ(error.exit_status(), 1);
      return error.what();
    }
  }

  Device device{node};
};
class SgToolCommand : public ToolCommand {};
INSTANTIATE_TEST_SUITE_P(, SgToolCommand, every_sg_way, way_name);
INSTANTIATE_TEST_SUITE_P(, ToolCommand, every_way, way_name);

TEST_P(SgToolCommand, EveryOutcomeInWords) {
  const Reply attention = Reply::check_condition({0x06, 0x29, 0x00});
  const bool direct = GetParam().direct();
  const struct {
    Reply reply;
    int times;
    std::string words;
    std::size_t commands;
  } cases[] = {
      // A unit attention is asked again, once: it alone ends with its report.
      {attention, 1, "ready", 2},
      {attention, 2, "not ready: UNIT ATTENTION: POWER ON, RESET, OR BUS DEVICE RESET OCCURRED", 2},
      {Reply::check_condition({0x02, 0x04, 0x01}), 1,
       "not ready: LOGICAL UNIT IS IN PROCESS OF BECOMING READY", 1},
      {{.status = sim::status::reservation_conflict}, 1, "not ready: RESERVATION CONFLICT", 1},
      {{.status = sim::status::busy}, 1, "not ready: BUSY", 1},
      {{.status = 0x40}, 1, "not ready: TASK ABORTED", 1},  // its masked status is that of GOOD
      {{.status = 0x5E}, 1, "not ready: SCSI status 5Eh", 1},
      {{.status = sim::status::check_condition}, 1, "not ready: CHECK CONDITION", 1},
      {{.host_status = 1}, 1, "not ready: no connection to the device", 1},
      {{.host_status = 3}, 1, "not ready: timed out", 1},
      {{.host_status = 0x0E}, 1, "not ready: transport disrupted", 1},
      {{.host_status = 0x13}, 1, "not ready: medium error", 1},  // the number of ENODEV, too
      {{.host_status = 0x77}, 1, "not ready: host or driver status 77h", 1},
      {{.error = ENODEV}, 1, "ready /dev/sdx: No such device", 1},
  };
  for (const auto &[reply, times, words, commands] : cases) {
    answer(reply, times);
    EXPECT_EQ(readiness(), words);
    EXPECT_EQ(host.take_requests().size(), commands) << words;
  }
  host.fail_open(direct ? node : sim::control_node, EACCES);
  EXPECT_EQ(readiness(), direct ? "ready /dev/sdx: Permission denied"
                                : "ready /dev/sdx: cannot open the control node "
                                  "/dev/kz/joxconfig: Permission denied");
}

TEST_P(SgToolCommand, DataAndResidual) {
  const Bytes cdb{0x12, 0, 0, 0, 96, 0};
  Bytes data(200, 0xEE);
  const tool::Data in{tool::Data::Direction::from_device, data};
  const tool::Completion completion = tool::send_command(device, cdb, in, "send");
  EXPECT_TRUE(completion.ok());
  EXPECT_EQ(completion.transferred, 96u);
  EXPECT_EQ(only_request().cdb, cdb);

  const tool::Data out{tool::Data::Direction::to_device, data};
  tool::send_command(device, Bytes(6), out, "send");
  EXPECT_EQ(only_request().data_out, data);
}

TEST_P(ToolCommand, ResultsInWords) {
  const bool ia64 = GetParam().ia64;
  EXPECT_EQ(readiness(), "ready");
  if (ia64) {  // the status is all there is
    answer(Reply::check_condition({0x02, 0x04, 0x01}), 1);
    EXPECT_EQ(readiness(), "not ready: CHECK CONDITION");
    answer(Reply{.status = sim::status::reservation_conflict}, 1);
    EXPECT_EQ(readiness(), "not ready: RESERVATION CONFLICT");
    fail_ioctl(EIO);
    EXPECT_EQ(readiness(), "ready /dev/sdx: Input/output error");
  }
  EXPECT_EQ(tool::result_words(ENXIO), "No such device or address");
  EXPECT_EQ(tool::result_words(ia64 ? -2 : -9), "CHECK CONDITION");
  EXPECT_EQ(tool::result_words(ia64 ? -24 : -12), "RESERVATION CONFLICT");
  EXPECT_EQ(tool::result_words(-1),
            ia64 ? "the device announces no data" : "no connection to the device");
  EXPECT_EQ(tool::result_words(ENOTTY), "not a SCSI device");
  host.fail_open(sim::control_node, ENOENT);
  EXPECT_EQ(tool::result_words(-19).starts_with("there is no control node"), !GetParam().direct());
}

TEST(ToolViews, WhatTheDeviceDoesNotSayIsNotConcluded) {
  tool::ViewBuilder groups("groups");
  const Bytes reply{0, 0, 0, 8, 0, 0x0F, 0, 1, 0, 0, 0, 0};
  tool::show_port_groups(groups, tool::PortGroups(reply), {.group = 3});
  EXPECT_NE(groups.build().text.find("\n  The group of this node, 3, is not among them.\n"),
            std::string::npos);
}

TEST_P(ToolCommand, TheHolderOfAReservation) {
  const std::pair<std::uint8_t, const char *> cases[] = {{1, "0000000000000000"},
                                                         {8, "all registrants"}};
  for (const auto &[type, holder] : cases) {
    const tool::Reservations state{.reservation = tool::Reservation{.type = type}};
    EXPECT_NE(tool::reservations_view(device, state).text.find(holder), std::string::npos);
  }
}

// --- discovery ---

Bytes page83(const Bytes &body) {
  Bytes page{0, 0x83, 0, static_cast<std::uint8_t>(body.size())};
  page.insert(page.end(), body.begin(), body.end());
  return page;
}

/// Nodes that are opened themselves, each with a disk of its own.
class DiscoveryTest : public DiskTest {
 protected:
  DiscoveryTest() { kzscsi_set_version("32"); }

  std::string add_disk(sim::DiskSpec spec = {}, const std::string &address = "") {
    std::string name = "/dev/sdx" + std::to_string(++count_);
    host.add({.name = name,
              .number = static_cast<dev_t>(0x800 + count_),
              .device = std::make_shared<sim::Disk>(std::move(spec)),
              .address = address});
    return name;
  }

  /// What the disk says to INQUIRY goes through `change` first.
  void alter_inquiry(const std::string &name, std::function<void(Reply &)> change) {
    host.inject(name, {.opcode = sim::opcode::inquiry, .times = -1, .change = std::move(change)});
  }

  std::string add_disk_with_page83(const Bytes &body, const std::string &address = "") {
    std::string name = add_disk({}, address);
    alter_inquiry(name, [body](Reply &reply) {
      if (reply.data.size() > 1 && reply.data[1] == 0x83) reply.data = page83(body);
    });
    return name;
  }

 private:
  int count_ = 0;
};

TEST_F(DiscoveryTest, OnlyAnIdentifierOfTheUnitJoinsNodes) {
  // As long as a page of 255 bytes has room for beside the numbers of the port.
  Bytes long_name{3, 0x08, 0, 232};
  long_name.resize(4 + 232, 'a');
  long_name.insert(long_name.end(),
                   {1, 0x94, 0, 4, 0, 0, 0xFF, 0xFF, 1, 0x95, 0, 4, 0, 0, 0xFF, 0xFF});
  const struct {
    const char *what;
    Bytes body;
    std::size_t units;
  } cases[] = {
      {"NAA", {1, 0x03, 0, 8, 0x50, 1, 2, 3, 4, 5, 6, 7}, 1},
      {"NAA of the target port", {1, 0x93, 0, 8, 0x50, 1, 2, 3, 4, 5, 6, 7}, 2},
      {"relative port", {1, 0x94, 0, 4, 0, 0, 0, 1}, 2},
      {"NAA behind the port's number",
       {1, 0x94, 0, 4, 0, 0, 0, 1, 1, 0x03, 0, 8, 0x50, 1, 2, 3, 4, 5, 6, 7},
       1},
      {"a long SCSI name", long_name, 1},
      {"blanks", {2, 0x01, 0, 4, ' ', ' ', ' ', ' '}, 2},
      {"unit group", {1, 0x06, 0, 4, 0, 0, 0, 0}, 2},
      {"none: the node's name", {}, 2},
  };
  for (const auto &[what, body, units] : cases) {
    const std::vector<std::string> nodes = {add_disk_with_page83(body), add_disk_with_page83(body)};
    const tool::Discovery found = tool::discover(nodes);
    EXPECT_EQ(found.units.size(), units) << what;
    EXPECT_TRUE(found.unanswered.empty()) << what;
  }
}

TEST_F(DiscoveryTest, WithoutAnIdentifierTheAddressJoinsNodes) {
  std::vector<std::string> nodes;
  for (const char *address : {"1:0:0:0", "1:0:0:0", "1:0:0:1", "", ""})
    nodes.push_back(add_disk_with_page83({}, address));
  const auto units = tool::discover(nodes).units;
  ASSERT_EQ(units.size(), 4u);
  EXPECT_EQ(units[0].paths.size(), 2u);
  EXPECT_EQ(units[0].paths[1].address, "1:0:0:0");
}

TEST_F(DiscoveryTest, HostileTextsAreMadeHarmless) {
  const std::string name =
      add_disk({.vendor = "A\x1B[31m", .product = "\xC3\xA4\\", .revision = ""});
  const tool::LogicalUnit unit = tool::discover({name}).units.at(0);
  EXPECT_EQ(unit.vendor, "A\\x1B[31m");
  EXPECT_EQ(unit.product, "\\xC3\\xA4\\\\");
  EXPECT_EQ(unit.revision, "");
}

TEST_F(DiscoveryTest, DeviceWithoutPagesIsNamedByItsNode) {
  const std::string name = add_disk({.serial = "S"});
  alter_inquiry(name, [](Reply &reply) {
    if (reply.data.size() < 36) reply = Reply::check_condition(sim::invalid_field_in_cdb);
  });
  const tool::LogicalUnit unit = tool::discover({name}).units.at(0);
  EXPECT_EQ(unit.identifier, name);
  EXPECT_EQ(unit.identifier_kind, KZDDL_NO_DESIGNATOR);
  EXPECT_EQ(unit.cabinet, "");
  EXPECT_EQ(unit.vendor, "KZSIM");
  EXPECT_TRUE(unit.paths.at(0).problems.empty()) << "it merely lacks pages";
}

TEST_F(DiscoveryTest, WhatDoesNotAnswerIsSetAside) {
  const std::string dead = add_disk();
  host.inject(dead, {.times = -1, .reply = Reply{.host_status = 1}});
  const std::string empty = add_disk();
  alter_inquiry(empty, [](Reply &reply) { reply.data.at(0) = 0x7F; });
  const std::string locked = add_disk();
  host.inject(locked, {.opcode = sim::opcode::test_unit_ready, .error = EIO});
  const tool::Discovery found = tool::discover({dead, empty, locked, "/dev/sdx99"});
  ASSERT_EQ(found.unanswered.size(), 3u);
  EXPECT_EQ(found.unanswered[0].error.what(), "inquiry " + dead + ": no connection to the device");
  EXPECT_EQ(found.unanswered[1].error.reason(), "there is no logical unit at this address");
  EXPECT_EQ(found.unanswered[2].error.what(),
            std::string("stat /dev/sdx99: No such file or directory"));
  ASSERT_EQ(found.units.size(), 1u);
  EXPECT_EQ(found.units[0].paths.at(0).readiness.words(), "not ready: Input/output error");
}

}  // namespace
}  // namespace kzddl_test
