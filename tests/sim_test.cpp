// The simulated host itself: the kernel's behaviour that it copies, and arrays from JSON files.
#include <scsi/scsi_ioctl.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "base/descriptor.h"
#include "sim/array.h"
#include "support/disk_test.h"

namespace kzddl_test {
namespace {

class Kernel : public DiskTest {
 protected:
  /// Sends 512 bytes of sevens, or expects them, without saying which.
  int send(Bytes cdb, int direction = 0) {
    data = Bytes(512, 7);
    sg_io_hdr header{};
    header.interface_id = 'S';
    header.dxfer_direction = direction;
    header.cmdp = cdb.data();
    header.cmd_len = static_cast<unsigned char>(cdb.size());
    header.dxferp = data.data();
    header.dxfer_len = 512;
    kzddl::Descriptor fd;
    EXPECT_TRUE(fd.open(node, O_RDONLY));
    errno = 0;
    const int result = ioctl(fd.get(), SG_IO, &header);
    return result == 0 ? header.status : errno;
  }

  Bytes data;
};

TEST_F(Kernel, LegacyRequestsAreLimitedToAPage) {
  for (const std::uint32_t out_length : {4096u, 4097u}) {
    alignas(4) unsigned char buffer[8192] = {};
    const unsigned char cdb[6] = {0x12, 0, 0, 0, 36, 0};
    std::memcpy(buffer + 4, &out_length, 4);
    std::memcpy(buffer + 8, cdb, sizeof cdb);
    kzddl::Descriptor fd;
    EXPECT_TRUE(fd.open(node, O_RDONLY));
    errno = 0;
    ioctl(fd.get(), SCSI_IOCTL_SEND_COMMAND, buffer);
    EXPECT_EQ(errno, out_length == 4096 ? 0 : EINVAL);
    EXPECT_EQ(buffer[16], out_length == 4096 ? 'K' : 0);
  }
}

TEST_F(Kernel, DataWithoutADirection) {
  const Bytes write{0x2A, 0, 0, 0, 0, 0, 0, 0, 1, 0}, read{0x28, 0, 0, 0, 0, 0, 0, 0, 1, 0};
  EXPECT_EQ(send(read), EINVAL) << "refused on a block node";
  EXPECT_EQ(send(read, SG_DXFER_NONE), EINVAL);
  host.add({.name = node,
            .number = number,
            .kind = sim::NodeKind::character,
            .device = std::make_shared<sim::Disk>(sim::DiskSpec{})});
  EXPECT_EQ(send(write), 0) << "a read on an sg node";
  EXPECT_EQ(send(read), 0);
  EXPECT_EQ(data, Bytes(512)) << "nothing was written";
}

TEST_F(Kernel, RemovedDevices) {
  kzddl::Descriptor fd, again;
  EXPECT_TRUE(fd.open(node, O_RDONLY));
  host.remove(node);
  unsigned char unused[16] = {};
  EXPECT_EQ(ioctl(fd.get(), SCSI_IOCTL_SEND_COMMAND, unused), -1);
  EXPECT_EQ(errno, ENODEV);
  EXPECT_FALSE(again.open(node, O_RDONLY));
  EXPECT_EQ(errno, ENXIO);
  EXPECT_EQ(do_tur_35(&path), -1);
}

TEST_F(Kernel, OfflineDisks) {
  host.add({.name = "/dev/sg1",
            .number = 1,
            .kind = sim::NodeKind::character,
            .device = std::make_shared<sim::Disk>(sim::DiskSpec{})});
  for (const char *name : {node, "/dev/sg1"}) {
    kzddl::Descriptor fd, again;
    EXPECT_TRUE(fd.open(name, O_RDONLY));
    host.inject(name, Fault::offline());
    unsigned char unused[16] = {};
    const bool is_sg = name != node;
    EXPECT_EQ(ioctl(fd.get(), SG_IO, unused), -1);
    EXPECT_EQ(errno, is_sg ? ENXIO : ENODEV);
    EXPECT_EQ(ioctl(fd.get(), SCSI_IOCTL_SEND_COMMAND, unused), is_sg ? 0 : -1);
    EXPECT_EQ(again.open(name, O_RDONLY | O_NONBLOCK), is_sg);
  }
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

/// A unit with this second path, and one with this member.
std::string with_path(const std::string &path) {
  return R"({"units": [{"paths": [{"node": "/dev/sda", "device": "8:0"}, )" + path + "]}]}";
}
std::string with_member(const std::string &member) {
  return R"({"units": [{)" + member +
         R"(, "paths": [{"node": "/dev/sda", "device": "8:0", "port": 2, "group": 3},
                        {"node": "/dev/sdb", "device": "8:16", "port": 2, "group": 4}]}]})";
}

TEST(Array, MistakesAreReportedWithTheirPlace) {
  std::ifstream cases(KZDDL_TEST_DATA "/../sessions/array-mistakes.txt");
  int mistakes = 0;
  for (std::string line; std::getline(cases, line);) {
    if (line.starts_with('#')) continue;
    const std::size_t equals = line.find(" = ");
    std::string json = line.substr(0, equals);
    if (json.starts_with("path ")) json = with_path(json.substr(5));
    if (json.starts_with("disk ")) json = with_member(json.substr(5));
    EXPECT_EQ(message_of(json), line.substr(equals + 3)) << line;
    ++mistakes;
  }
  EXPECT_GT(mistakes, 20);
  EXPECT_EQ(message_of("{\"units\": [\n  oops]}").find("parse error at line 2, column 3"), 0u);
  EXPECT_NE(message_of(with_path(R"({"node": "/dev/sdb", "device": "8:16", "replay": "none"})"))
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

/// What a file holds; where there is none, the errno's name.
std::string content_of(const std::string &name) {
  kzddl::Descriptor fd;
  if (!fd.open(name.c_str(), O_RDONLY)) return strerrorname_np(errno);
  char buffer[512];
  const ssize_t size = read(fd.get(), buffer, sizeof buffer);
  return {buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

std::set<std::string> names_in(const char *directory) {
  std::set<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(directory))
    names.insert(entry.path().filename());
  return names;
}

TEST(Array, IsListedByTheKernel) {
  std::string designators;
  for (int i = 0; i < 300; ++i)
    designators += "07 ";
  EXPECT_EQ(message_of(R"({"units": [{"vendor": "ACME", "serial": "S1", "paths": [
    {"node": "/dev/sda", "device": "8:0", "address": "0:0:0:1", "links": ["/dev/disk/by-id/a"]},
    {"node": "/dev/sg1", "device": "21:1", "kind": "character", "address": "0:0:0:1"},
    {"node": "/dev/sdb", "device": "8:16", "address": "1:0:0:1", "fail": "offline"},
    {"node": "/dev/sdc", "device": "8:32", "address": "2:0:0:1", "state": "blocked",
     "capacity_known": false},
    {"node": "/dev/sdd", "device": "8:48", "address": "3:0:0:1", "fail": "removed"}],
    "designators": [")" +
                       designators + R"("]}]})"),
            "");
  const std::string partitions = "major minor  #blocks  name\n\n8 0 1048576 sda\n";
  const std::string page_83 = std::string("\0\x83\1\x2C", 4) + std::string(300, 7);
  const std::pair<const char *, std::string> files[] = {
      {"/proc/partitions", partitions + "8 16 1048576 sdb\n"},
      {"/sys/class/block/sda/dev", "8:0\n"},
      {"/sys/class/block/sdc/size", "0\n"},
      {"/sys/block/sda/device/vendor", "ACME    \n"},
      {"/sys/dev/block/8:0/device/model", "VIRTUAL DISK    \n"},
      {"/sys/dev/char/21:1/device/rev", "0100\n"},
      {"/sys/class/scsi_generic/sg1/device/state", "running\n"},
      {"/sys/class/block/sdb/device/state", "offline\n"},
      {"/sys/class/block/sdb/device/vpd_pg80", std::string("\0\x80\0\2S1", 6)},
      {"/sys/class/block/sdb/device/vpd_pg83", page_83},
      {"/sys/class/block/sdc/device/state", "blocked\n"},
      {"/sys/class/block/sdd/dev", "ENOENT"}};
  for (const auto &[name, text] : files)
    EXPECT_EQ(content_of(name), text) << name;
  using Names = std::set<std::string>;
  EXPECT_EQ(names_in("/sys/class/block"), (Names{"sda", "sdb", "sdc"}));
  EXPECT_EQ(names_in("/sys/block/sda/device/scsi_generic/"), Names{"sg1"});
  EXPECT_EQ(std::filesystem::read_symlink("/sys/class/block/sda/device"), "../../../0:0:0:1");
  EXPECT_EQ(std::filesystem::canonical("/sys/block/sdb/device").filename(), "1:0:0:1");
  EXPECT_EQ(std::filesystem::canonical("/dev/disk/by-id/a"), "/dev/sda");
  EXPECT_EQ(find_device_number("/dev/disk/by-id/a"), makedev(8, 0));
}

}  // namespace
}  // namespace kzddl_test
