// The simulated host itself: the kernel's behaviour that it copies, and arrays from JSON files.
#include <scsi/scsi_ioctl.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "base/descriptor.h"
#include "sim/array.h"
#include "support/disk_test.h"

namespace kzddl_test {
namespace {

class Kernel : public DiskTest {
 protected:
  int open_node() {
    EXPECT_TRUE(fd_.open(node, O_RDONLY));
    return fd_.get();
  }

  /// The legacy request of an INQUIRY with these lengths.
  int legacy(std::uint32_t in_length, std::uint32_t out_length) {
    std::memset(buffer, 0, sizeof buffer);
    std::memcpy(buffer, &in_length, 4);
    std::memcpy(buffer + 4, &out_length, 4);
    const unsigned char cdb[6] = {0x12, 0, 0, 0, 36, 0};
    std::memcpy(buffer + 8, cdb, sizeof cdb);
    return ioctl(open_node(), SCSI_IOCTL_SEND_COMMAND, buffer);
  }

  alignas(4) unsigned char buffer[16384];

 private:
  kzddl::Descriptor fd_;
};

TEST_F(Kernel, LegacyRequestsAreLimitedToAPage) {
  EXPECT_EQ(legacy(0, 4096), 0);
  EXPECT_EQ(buffer[16], 'K');
}

TEST_F(Kernel, LegacyRequestsOverAPageFail) {
  EXPECT_EQ(legacy(0, 4097), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Kernel, DataWithoutADirectionAreRefusedOnABlockNode) {
  unsigned char cdb[6] = {};
  unsigned char data[8] = {};
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.cmdp = cdb;
  header.cmd_len = sizeof cdb;
  header.dxferp = data;
  header.dxfer_len = sizeof data;
  const int fd = open_node();
  for (const int direction : {0, SG_DXFER_NONE}) {
    header.dxfer_direction = direction;
    EXPECT_EQ(ioctl(fd, SG_IO, &header), -1);
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST_F(Kernel, DataWithoutADirectionAreAReadOnAnSgNode) {
  host.add({.name = node,
            .number = number,
            .kind = sim::NodeKind::character,
            .device = std::make_shared<sim::Disk>(sim::DiskSpec{})});
  Bytes data(512, 7);
  unsigned char write[10] = {0x2A, 0, 0, 0, 0, 0, 0, 0, 1, 0};
  unsigned char read[10] = {0x28, 0, 0, 0, 0, 0, 0, 0, 1, 0};
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.cmd_len = sizeof write;
  header.dxferp = data.data();
  header.dxfer_len = 512;
  const int fd = open_node();
  for (unsigned char *cdb : {write, read}) {
    header.cmdp = cdb;
    EXPECT_EQ(ioctl(fd, SG_IO, &header), 0);
    EXPECT_EQ(header.status, 0);
  }
  EXPECT_EQ(data, Bytes(512)) << "nothing was written";
}

TEST_F(Kernel, RemovedDevices) {
  const int fd = open_node();
  host.remove(node);
  unsigned char unused[16] = {};
  EXPECT_EQ(ioctl(fd, SCSI_IOCTL_SEND_COMMAND, unused), -1);
  EXPECT_EQ(errno, ENODEV);
  kzddl::Descriptor again;
  EXPECT_FALSE(again.open(node, O_RDONLY));
  EXPECT_EQ(errno, ENXIO);
  EXPECT_EQ(do_tur_35(&path), -1);
}

/// What loading an array description says.
std::string message_of(const std::string &json) {
  const std::string file = testing::TempDir() + "kzddl-array-test-" + std::to_string(getpid());
  std::ofstream(file) << json;
  std::string message;
  try {
    sim::install_file(sim::Host::instance(), file);
  } catch (const sim::ArrayError &error) {
    message = error.what();
  }
  std::filesystem::remove(file);
  EXPECT_TRUE(message.empty() || message.starts_with(file + ": ")) << message;
  return message.empty() ? message : message.substr(file.size() + 2);
}

TEST(Array, MistakesAreReportedWithTheirPlace) {
  const auto unit = [](const std::string &path) {
    return R"({"units": [{"paths": [{"node": "/dev/sda", "device": "8:0"}, )" + path + "]}]}";
  };
  const auto disk = [](const std::string &key) {
    return R"({"units": [{)" + key +
           R"(, "paths": [{"node": "/dev/sda", "device": "8:0", "port": 2, "group": 3},
                          {"node": "/dev/sdb", "device": "8:16", "port": 2, "group": 4}]}]})";
  };
  const std::pair<std::string, std::string> cases[] = {
      {"[]", "/: expected an object"},
      {"{}", "/: \"units\" is missing"},
      {R"({"units": []})", "/units: expected a list that is not empty"},
      {R"({"units": [{"path": []}]})", "/units/0: unknown key \"path\""},
      {unit(R"({"node": 5})"), "/units/0/paths/1/node: expected text"},
      {unit(R"({"node": "/dev/sdb", "device": "8;16"})"),
       "/units/0/paths/1/device: expected two numbers with \":\" between them"},
      {unit(R"({"node": "/dev/sdb", "device": "8:16", "port": 65536})"),
       "/units/0/paths/1/port: expected a whole number from 0 to 65535"},
      {unit(R"({"node": "/dev/sda", "device": "8:16"})"),
       "/units: node \"/dev/sda\" is used twice"},
      {unit(R"({"node": "/dev/sdb", "device": "8:0"})"),
       "/units: the device number of \"/dev/sdb\" is used twice"},
      {disk(R"("blocks": 0)"),
       "/units/0/blocks: expected a whole number from 1 to 18446744073709551615"},
      {disk(R"("block_size": 520)"), "/units/0/block_size: expected 512 or 4096"},
      {disk(R"("geometry": true)"), "/units/0/geometry: expected an object"},
      {disk(R"("geometry": {"heads": 256})"),
       "/units/0/geometry/heads: expected a whole number from 0 to 255"},
      {disk(R"("answers_page_0": 1)"), "/units/0/answers_page_0: expected true or false"},
      {disk(R"("copy": "yes")"), "/units/0/copy: expected \"none\", \"mode page\" or \"command\""},
      {disk(R"("groups": [{"id": 3}, {"id": 3}])"),
       "/units/0/groups/1/id: another group has this id"},
      {disk(R"("groups": [{"id": 3}])"), "/units/0/paths/1: the unit has no target port group 4"},
      {disk(R"("groups": [{"id": 3}, {"id": 4}])"),
       "/units/0/paths/1: port 2 is in group 3 on another path, in group 4 here"},
      {R"({"units": [{"naa": "60 0", "paths": []}]})",
       "/units/0/naa: line 1, column 4: a byte takes two hexadecimal digits"},
  };
  for (const auto &[json, message] : cases)
    EXPECT_EQ(message_of(json), message);
  EXPECT_EQ(message_of("{\"units\": [\n  oops]}").find("parse error at line 2, column 3"), 0u);
  EXPECT_EQ(message_of("{\"units\": 9e999}"), "number overflow parsing '9e999'");
  EXPECT_NE(message_of(unit(R"({"node": "/dev/sdb", "device": "8:16", "replay": "none"})"))
                .find("/units/0/paths/1/replay: "),
            std::string::npos);
}

TEST(Array, DescribesDisksReplaysAndMultipathNodes) {
  EXPECT_EQ(message_of(R"({"machine": "i686", "units": [
    {"vendor": "ACME", "serial": "S1", "naa": "600A0B80 01020304", "not_ready": "04/0B",
     "multipath": "m0", "paths": [{"node": "/dev/sda", "device": "8:0", "port": 3}]},
    {"paths": [{"node": "/dev/sg9", "device": "21:9", "kind": "character",
                "replay": ")" KZDDL_TEST_DATA R"(/lio-path1"}]}]})"),
            "");
  odh path{};
  std::strcpy(path.devname, "/dev/kz/rjox/m0");
  path.dev = find_device_number(path.devname);
  char id[KZDDL_LUN_ID_SIZE];
  unsigned char type = 0;
  EXPECT_EQ(get_lun_id(&path, 0, id, &type, "none"), 0);
  EXPECT_STREQ(id, "600A0B8001020304");
  EXPECT_EQ(ddl_is_linux_64(), 0);

  path.dev = makedev(21, 9);
  EXPECT_EQ(get_lun_id(&path, 0, id, &type, "none"), 0);
  EXPECT_STREQ(id, "60014054C7A9E025B1D4F3E9A600D2C8");
}

}  // namespace
}  // namespace kzddl_test
