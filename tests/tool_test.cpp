// The command line tool as its users meet it: texts, JSON, errors and exit statuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "support/run_tool.h"

namespace kzddl_test {
namespace {

using nlohmann::json;

std::string data(const std::string &name) { return std::string(KZDDL_TEST_DATA "/") + name; }

void expect_output(const ToolRun &run, const std::string &out) {
  EXPECT_EQ(run.out, out);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
}

void expect_error(const ToolRun &run, const std::string &line, int status) {
  EXPECT_EQ(run.err, "kzddl: " + line + "\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.status, status);
}

TEST(ToolDecode, StandardInquiryData) {
  expect_output(run_tool({"decode", "inquiry", data("lio-path1/inquiry.hex")}),
                R"(Standard inquiry data, 96 bytes
  Device type      direct access block device
  Qualifier        connected
  Vendor           LIO-ORG
  Product          FILEIO
  Revision         4.0
  Removable        no
  Version          SPC-4
  Response format  2
  Port groups      implicit and explicit
  Features         SCCS 3PC MULTIP CMDQUE
  Standards        00A0h 0C60h 0460h 04C0h
)");
}

TEST(ToolDecode, DeviceIdentification) {
  expect_output(run_tool({"decode", "vpd83", data("lio-path1/vpd-83.hex")}),
                R"(Device Identification, VPD page 83h, 168 bytes
  Association    Type                 Code set  Designator
* logical unit   NAA                  binary    60014054C7A9E025B1D4F3E9A600D2C8
  logical unit   T10 vendor ID        ASCII     LIO-ORG FILEIO:4c7a9e02-5b1d-4f3
                                                e-9a60-0d2c8e71b5f4
  target port    relative port (SAS)  binary    00000001
  target port    port group (SAS)     binary    00000000
  logical unit   unit group           binary    00000000
  target port    SCSI name (SAS)      UTF-8     naa.5001405000000001,t,0x0001
  target device  SCSI name (SAS)      UTF-8     naa.5001405000000001
)");
  // The better designator is not the first one here.
  const json page =
      json::parse(run_tool({"decode", "vpd83", data("scsi_debug-lun1/vpd-83.hex"), "--json"}).out);
  EXPECT_EQ(page["cut_short"], false);
  ASSERT_EQ(page["designators"].size(), 7u);
  EXPECT_EQ(page["designators"][0]["text"], "Linux   scsi_debug      2001");
  EXPECT_EQ(page["designators"][0]["chosen"], false);
  EXPECT_EQ(page["designators"][1]["hex"], "33333330000007D1");
  EXPECT_EQ(page["designators"][1]["chosen"], true);
}

TEST(ToolDecode, OtherPagesAndRawInput) {
  expect_output(run_tool({"decode", "vpd80", data("scsi_debug-lun0/vpd-80.hex")}),
                "Unit Serial Number, VPD page 80h, 8 bytes\n  Serial number  2000\n");
  using namespace std::string_view_literals;
  expect_output(run_tool({"decode", "vpd80", "-"}, "\0\x80\0\x07\x1B[3\\m\xFF "sv),
                "Unit Serial Number, VPD page 80h, 11 bytes\n"
                "  Serial number  \\x1B[3\\\\m\\xFF\n");
  EXPECT_EQ(
      json::parse(
          run_tool({"decode", "vpd80", "-", "--json"}, "\0\x80\0\x01\xFF"sv).out)["serial_number"],
      "\\xFF");
  const ToolRun pages = run_tool({"decode", "vpd00", data("lio-path1/vpd-00.hex")});
  EXPECT_NE(pages.out.find("\n  83h  Device Identification\n"), std::string::npos);
}

TEST(ToolDecode, PagesCutShortSaySo) {
  expect_output(run_tool({"decode", "vpd83", "-"}, "00 83 00 20 01 03 00 10 60 01"),
                R"(Device Identification, VPD page 83h, 10 bytes
  Association   Type  Code set  Designator
  logical unit  NAA   binary    6001 (cut short: 2 of 16 bytes)
  Cut short: 10 of 36 bytes are here.
)");
  // A descriptor that runs past the end of a whole page.
  EXPECT_NE(run_tool({"decode", "vpd83", "-"}, "00 83 00 06 02 01 00 ff 41 42")
                .out.find("AB (cut short: 2 of 255 bytes)\n"),
            std::string::npos);
  expect_output(run_tool({"decode", "inquiry", "-"}, "00 80"),
                R"(Standard inquiry data, 2 bytes
  Device type  direct access block device
  Qualifier    connected
  Removable    yes
  Cut short: 2 of 5 bytes are here.
)");
  expect_error(run_tool({"decode", "vpd83", "-"}, "00 83"),
               "decode -: cut short: 2 of the 4 bytes of a page's header", 2);
}

TEST(ToolErrors, CommandLineAndFiles) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "a subcommand is required (kzddl --help lists them)"},
      {{"discoverr"}, "The following argument was not expected: discoverr"},
      {{"ready"}, "NODE is required"},
      {{"--route", "up", "discover"}, "--route: up not in {direct,indirect}"},
      {{"inquiry", "/dev/x", "--page", "100"}, "--page: expected a hexadecimal byte, 00 to ff"},
      {{"send", "/dev/x", "--cdb", "12 0"},
       "--cdb: line 1, column 4: a byte takes two hexadecimal digits"},
      {{"send", "/dev/x", "--cdb", "12 00"}, "--cdb: a CDB has 6 to 255 bytes"},
      {{"decode", "vpd83", "/nowhere"}, "decode /nowhere: No such file or directory"},
      {{"decode", "vpd83", data("lio-path1/vpd-80.hex")},
       "decode " + data("lio-path1/vpd-80.hex") + ": this is page 80h, not page 83h"},
      {{"send", "/dev/x", "--cdb", "000000000000", "--out", "/nowhere"},
       "send: /nowhere: No such file or directory"},
  };
  for (const auto &[arguments, line] : cases)
    expect_error(run_tool(arguments), line, 2);
  EXPECT_EQ(run_tool({"--sim=/nowhere", "discover"}).status, 2);
}

TEST(ToolErrors, Devices) {
  expect_error(run_tool({"inquiry", "/dev/null", "--route", "direct"}),
               "inquiry /dev/null: Inappropriate ioctl for device", 1);
  expect_error(run_tool({"inquiry", "/dev/null"}),
               "inquiry /dev/null: cannot open the control node /dev/kz/joxconfig "
               "(--route direct does without)",
               1);
  expect_error(run_tool({"ready", "/dev/a\x1B\nb"}),
               "stat /dev/a\\x1B\\x0Ab: No such file or directory", 1);
  expect_error(run_tool({"identify", "/"}), "stat /: not a device node", 1);
  expect_error(run_tool({"--sim", "inquiry", "/dev/sda", "--page", "fe"}),
               "inquiry /dev/sda: CHECK CONDITION", 1);
  expect_error(run_tool({"--sim", "send", "/dev/sda", "--cdb", "ff0000000000"}),
               "send /dev/sda: CHECK CONDITION, ILLEGAL REQUEST: INVALID COMMAND OPERATION CODE",
               1);
}

TEST(ToolHelp, EveryPartHasExamplesWithinTheScreen) {
  for (const char *command : {"", "discover", "inquiry", "identify", "ready", "send", "decode",
                              "database", "attribute"}) {
    std::vector<std::string> arguments = {"--help"};
    if (*command != '\0') arguments.insert(arguments.begin(), command);
    const ToolRun run = run_tool(arguments);
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("\nExamples:\n  kzddl "), std::string::npos) << command;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);)
      EXPECT_LE(line.size(), 80u) << line;
  }
}

/// A host with two paths to one captured disk, and a disk that is being formatted.
class ToolOnArray : public testing::Test {
 protected:
  ToolOnArray() {
    std::ofstream(file_) << json{
        {"units",
         {{{"multipath", "shared"},
           {"paths",
            {{{"node", "/dev/sda"}, {"device", "8:0"}, {"replay", data("lio-path1")}},
             {{"node", "/dev/sdb"}, {"device", "8:16"}, {"replay", data("lio-path2")}}}}},
          {{"vendor", "KZSIM"},
           {"naa", "600508b400010203"},
           {"not_ready", "04/0B"},
           {"paths", {{{"node", "/dev/sdc"}, {"device", "8:32"}}}}}}}};
  }
  ~ToolOnArray() override { ::unlink(file_.c_str()); }

  ToolRun run(std::vector<std::string> arguments, const std::string &locale = "C") const {
    arguments.push_back("--sim=" + file_);
    return run_tool(arguments, {}, locale);
  }

 private:
  const std::string file_ = testing::TempDir() + "tool_array_" + std::to_string(::getpid());
};

TEST_F(ToolOnArray, DiscoversUnitsAsATree) {
  const std::string tree = R"(2 logical units, 3 paths, 1 multipath node; 1 path not ready
├─ NAA 60014054C7A9E025B1D4F3E9A600D2C8
│  LIO-ORG FILEIO rev 4.0, cabinet 4c7a9e02-5b1d-4f3e-9a60-0d2c8e71
│  ├─ multipath  /dev/kz/rjox/shared  253:0  ready
│  ├─ path       /dev/sda             8:0    ready
│  └─ path       /dev/sdb             8:16   ready
│
└─ NAA 600508B400010203
   KZSIM VIRTUAL DISK rev 0100, no cabinet serial
   └─ path       /dev/sdc             8:32   not ready: LOGICAL UNIT NOT
                                             ACCESSIBLE, TARGET PORT IN STANDBY
                                             STATE
)";
  expect_output(run({"discover"}, "C.UTF-8"), tree);
  expect_output(run({"--route", "direct", "discover"}, "C.UTF-8"), tree);
  expect_output(run({"discover", "/dev/sdb"}),
                R"(1 logical unit, 1 path, 0 multipath nodes
`- NAA 60014054C7A9E025B1D4F3E9A600D2C8
   LIO-ORG FILEIO rev 4.0, cabinet 4c7a9e02-5b1d-4f3e-9a60-0d2c8e71
   `- path  /dev/sdb  8:16  ready
)");
}

TEST_F(ToolOnArray, DiscoveryInJson) {
  const ToolRun tool = run({"discover", "--json", "/dev/sdc", "/dev/sdq", "/dev/kz/jox/shared"});
  EXPECT_EQ(tool.err, "kzddl: stat /dev/sdq: No such file or directory\n");
  EXPECT_EQ(tool.status, 1);
  EXPECT_EQ(json::parse(tool.out), json::parse(R"({
    "logical_units": [
      {"identifier": "600508B400010203", "identifier_type": "NAA", "identifier_kind": 3,
       "device_type": "direct access block device", "vendor": "KZSIM",
       "product": "VIRTUAL DISK", "revision": "0100", "cabinet_serial": null,
       "multipath_nodes": [],
       "paths": [{"node": "/dev/sdc", "major": 8, "minor": 32, "ready": false, "reason":
         "LOGICAL UNIT NOT ACCESSIBLE, TARGET PORT IN STANDBY STATE"}]},
      {"identifier": "60014054C7A9E025B1D4F3E9A600D2C8", "identifier_type": "NAA",
       "identifier_kind": 3, "device_type": "direct access block device",
       "vendor": "LIO-ORG", "product": "FILEIO", "revision": "4.0",
       "cabinet_serial": "4c7a9e02-5b1d-4f3e-9a60-0d2c8e71",
       "multipath_nodes":
         [{"node": "/dev/kz/jox/shared", "major": 252, "minor": 0, "ready": true, "reason": null}],
       "paths": []}],
    "unanswered_nodes": [{"node": "/dev/sdq", "reason": "No such file or directory"}]
  })"));
}

TEST_F(ToolOnArray, ReadinessGoesOnAfterAFailure) {
  const ToolRun tool = run({"ready", "/dev/sdc", "/dev/sdq", "/dev/sda"});
  EXPECT_EQ(tool.out,
            "/dev/sdc  not ready: LOGICAL UNIT NOT ACCESSIBLE, TARGET PORT IN STANDBY STATE\n"
            "/dev/sda  ready\n");
  EXPECT_EQ(tool.err, "kzddl: stat /dev/sdq: No such file or directory\n");
  EXPECT_EQ(tool.status, 1);
  expect_output(run({"ready", "/dev/sda"}), "/dev/sda  ready\n");
  EXPECT_EQ(run({"ready", "/dev/sdc"}).status, 1);
}

TEST_F(ToolOnArray, IdentifiesNodes) {
  expect_output(run({"identify", "/dev/sdb"}), R"(/dev/sdb
  Device number  8:16
  Identifier     60014054C7A9E025B1D4F3E9A600D2C8
  Type           NAA
  Association    logical unit
  Cabinet        4c7a9e02-5b1d-4f3e-9a60-0d2c8e71
)");
}

TEST_F(ToolOnArray, DatabaseOfADiscovery) {
  expect_output(run({"database", "/dev/sdc"}), R"(DISK, 1 value
  /dev/sdc
    CONTROLLER     port group 1, port 1
    DEVICE_NUMBER  8:32
    DEVICE_TYPE    direct access block device
    LUN_ID         600508B400010203
    LUN_ID_TYPE    03
    PRODUCT        VIRTUAL DISK
    READY          not ready: LOGICAL UNIT NOT ACCESSIBLE, TARGET PORT IN
                   STANDBY STATE
    REVISION       0100
    VENDOR         KZSIM

CONTROLLER, 1 value
  port group 1, port 1
    DISK  /dev/sdc

DEVICE_NUMBER, 1 value
  8:32
    DISK  /dev/sdc

DEVICE_TYPE, 1 value
  direct access block device
    DISK  /dev/sdc

LUN_ID, 1 value
  600508B400010203
    DISK  /dev/sdc

LUN_ID_TYPE, 1 value
  03
    DISK  /dev/sdc

PRODUCT, 1 value
  VIRTUAL DISK
    DISK  /dev/sdc

READY, 1 value
  not ready: LOGICAL UNIT NOT ACCESSIBLE, TARGET PORT IN STANDBY STATE
    DISK  /dev/sdc

REVISION, 1 value
  0100
    DISK  /dev/sdc

VENDOR, 1 value
  KZSIM
    DISK  /dev/sdc
)");

  // Every node of a multipathed unit has the name of its multipath node.
  const json properties = json::parse(run({"database", "--json"}).out);
  const auto jox = std::find_if(properties.begin(), properties.end(),
                                [](const json &p) { return p["property"] == "JOX_DEVICE"; });
  ASSERT_NE(jox, properties.end());
  EXPECT_EQ((*jox)["values"], json::parse(R"([{"type": 0, "text": "shared", "associations": [
    {"property": "DISK", "type": 0, "text": "/dev/kz/rjox/shared"},
    {"property": "DISK", "type": 0, "text": "/dev/sda"},
    {"property": "DISK", "type": 0, "text": "/dev/sdb"}]}])"));

  const ToolRun log = run({"database", "--log", "/dev/sdc", "/dev/sdq"});
  EXPECT_EQ(log.out, "");
  EXPECT_EQ(log.err.find("kzddl: stat /dev/sdq: No such file or directory\nProperty List\n"), 0u);
  EXPECT_NE(log.err.find("\tval = KZSIM asso = 1 \n\t\tassociate = DISK value = /dev/sdc\n"),
            std::string::npos);
  EXPECT_EQ(log.status, 1);
}

TEST_F(ToolOnArray, StoredAttributes) {
  expect_output(run({"attribute", "/dev/sda", "PRODUCT"}), "FILEIO\n");
  expect_output(run({"attribute", "/dev/sda", "CONTROLLER"}), "port group 0, port 1\n");
  expect_output(run({"attribute", "/dev/kz/jox/shared", "jox_device"}), "shared\n");
  EXPECT_EQ(json::parse(run({"attribute", "/dev/sdc", "VENDOR", "--json"}).out), json::parse(R"({
    "disk": "/dev/sdc", "attribute": "VENDOR", "values": [{"type": 0, "text": "KZSIM"}]})"));
  expect_error(run({"attribute", "/dev/sdq", "VENDOR"}), "stat /dev/sdq: No such file or directory",
               1);
  expect_error(run({"attribute", "/dev/sdc", "CABINET"}),
               "attribute /dev/sdc: no attribute CABINET", 1);
  expect_error(run({"attribute", "/dev/sdc", "DISK_GEOMETRY"}),
               "attribute /dev/sdc: no attribute DISK_GEOMETRY", 1);
}

TEST_F(ToolOnArray, AttributesOfALibrary) {
  const auto fetch = [this](const std::string &name) {
    return run({"attribute", "/dev/sdc", name, "--library", KZDDL_EXAMPLE_ASL});
  };
  expect_output(fetch("ARRAY_TYPE"), "RAID-5\n");
  expect_output(fetch("POWER_STATE"), "PSU 0 ok\nPSU 1 absent\n");
  expect_output(fetch("INQUIRY_ID"), "4B5A53494D2020205649525455414C204449534B2020202030313030\n");
  expect_output(fetch("LIBNAME"), "kzexample_asl\n");
  expect_output(fetch("VENDOR"), "KZSIM\n");
  expect_error(fetch("OTHER"), "attribute /dev/sdc: no attribute OTHER", 1);
  const ToolRun other = run({"attribute", "/dev/sdc", "X", "--library", KZDDL_TOOL});
  EXPECT_EQ(other.err.find("kzddl: library " KZDDL_TOOL), 0u);
  EXPECT_EQ(other.status, 2);
}

TEST(ToolOnDemonstration, GeometryIsFetched) {
  expect_output(run_tool({"--sim", "attribute", "/dev/sda", "DISK_GEOMETRY"}), R"(Geometry
  Cylinders          130
  Heads              255
  Sectors per track  63
  Bytes per sector   512
  Rotation rate      7200 a minute
  Capacity           2097152 sectors
)");
  const json value =
      json::parse(run_tool({"--sim", "attribute", "/dev/sda", "DISK_GEOMETRY", "--json"}).out);
  EXPECT_EQ(value["values"][0]["type"], 128);
  EXPECT_EQ(value["values"][0]["geometry"]["capacity"], 2097152);
}

TEST_F(ToolOnArray, InquiryComesBackAsItWasCaptured) {
  const ToolRun hexadecimal = run({"inquiry", "/dev/sda", "--page", "83", "--hex"});
  const std::string decoded = run({"inquiry", "/dev/sda", "--page", "0x83"}).out;
  EXPECT_EQ(decoded, run_tool({"decode", "vpd83", data("lio-path1/vpd-83.hex")}).out);
  EXPECT_EQ(run_tool({"decode", "vpd83", "-"}, hexadecimal.out).out, decoded);

  const ToolRun raw = run({"inquiry", "/dev/sda", "--raw"});
  EXPECT_EQ(raw.out.size(), 96u);
  const ToolRun sent =
      run({"send", "/dev/sda", "--cdb", "12 00 00 00 60 00", "--in", "200", "--raw"});
  EXPECT_EQ(sent.out, raw.out) << "what did not move is not printed";
}

}  // namespace
}  // namespace kzddl_test
