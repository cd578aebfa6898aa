// The generic pass-through, the indirect request, the interface version with its lock, and the
// probes. Each case runs in a process of its own.
#include <chrono>
#include <future>

#include "support/disk_test.h"

namespace kzddl_test {
namespace {

using namespace std::chrono_literals;

/// A uscsi_cmd over buffers of its own; what the library may write is marked.
struct Pass {
  Bytes cdb;
  Bytes data;
  Bytes sense = Bytes(64, 0xEE);
  uscsi_cmd cmd{};

  explicit Pass(Bytes data_bytes, Bytes cdb_bytes = {0x12, 0, 0, 0, 64, 0}, int flags = USCSI_READ)
      : cdb(std::move(cdb_bytes)), data(std::move(data_bytes)) {
    cmd.uscsi_flags = flags;
    cmd.uscsi_status = cmd.uscsi_timeout = -1;
    cmd.uscsi_cdb = cdb.data();
    cmd.uscsi_cdblen = static_cast<std::uint8_t>(cdb.size());
    cmd.uscsi_bufaddr = data.data();
    cmd.uscsi_buflen = static_cast<std::uint32_t>(data.size());
    cmd.uscsi_resid = -1;
    cmd.uscsi_rqlen = static_cast<std::uint8_t>(sense.size());
    cmd.uscsi_rqbuf = sense.data();
    cmd.uscsi_rqstatus = cmd.uscsi_rqresid = 0xEE;
  }
};

class SgScsi : public WayTest {};
class LegacyScsi : public WayTest {};
INSTANTIATE_TEST_SUITE_P(, SgScsi, every_sg_way, way_name);
INSTANTIATE_TEST_SUITE_P(, LegacyScsi, every_legacy_way, way_name);

TEST_P(SgScsi, ReportsResidualStatusAndSense) {
  Pass pass(Bytes(128));
  ASSERT_EQ(do_scsi(&path, &pass.cmd), 0);
  EXPECT_EQ(std::memcmp(&pass.data[8], "KZSIM   VIRTUAL DISK", 20), 0);
  EXPECT_EQ(pass.cmd.uscsi_status, 0);
  EXPECT_EQ(pass.cmd.uscsi_resid, 64);
  EXPECT_EQ(pass.cmd.uscsi_rqresid, 0);
  EXPECT_EQ(pass.cmd.uscsi_rqstatus, 0xEE);
  EXPECT_EQ(only_request().header.mx_sb_len, 64);

  answer(Reply::check_condition({0x05, 0x24, 0x00}), 1);
  EXPECT_EQ(do_scsi(&path, &pass.cmd), 1 | 8) << "not negated";
  EXPECT_EQ(pass.cmd.uscsi_status, 2);
  EXPECT_EQ(pass.cmd.uscsi_rqresid, 18);
  EXPECT_EQ(pass.sense[2], 0x05);
  EXPECT_EQ(pass.sense[18], 0xEE);

  fail_ioctl(ENOMEM);
  errno = 0;
  EXPECT_EQ(do_scsi(&path, &pass.cmd), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(pass.cmd.uscsi_status, 0) << "the fields are still written";
  EXPECT_EQ(pass.cmd.uscsi_resid, 0);
}

TEST_P(SgScsi, DirectionFollowsTheDataWithoutReadFlag) {
  answer(Reply{});
  Pass write(Bytes(8, 0x5A), {0x2A, 0, 0, 0, 0, 0, 0, 0, 1, 0}, 0);
  EXPECT_EQ(do_scsi(&path, &write.cmd), 0);
  const Request sent = only_request();
  EXPECT_EQ(sent.header.dxfer_direction, SG_DXFER_TO_DEV);
  EXPECT_EQ(sent.data_out, Bytes(8, 0x5A));

  write.cmd.uscsi_buflen = 0;
  EXPECT_EQ(do_scsi(&path, &write.cmd), 0);
  const Request empty = only_request();
  EXPECT_EQ(empty.header.dxfer_direction, SG_DXFER_NONE);
  EXPECT_EQ(empty.header.dxfer_len, 0u);
  EXPECT_EQ(empty.header.dxferp, write.data.data());
}

TEST_P(LegacyScsi, SendsWhatItReadsIntoAndCopiesBackWhateverHappened) {
  Pass pass(Bytes(40, 0x77));
  ASSERT_EQ(do_scsi(&path, &pass.cmd), 0);
  EXPECT_EQ(std::memcmp(&pass.data[8], "KZSIM   VIRTUAL DISK", 20), 0);
  EXPECT_EQ(only_request().data_out, Bytes(40, 0x77));
  answer(Reply::check_condition({0x05, 0x24, 0x00}), 1);
  EXPECT_EQ(do_scsi(&path, &pass.cmd), -2);
  EXPECT_EQ(pass.data[0], 0x70) << "sense data come back where the data would";
  fail_ioctl(EPERM);
  EXPECT_EQ(do_scsi(&path, &pass.cmd), EPERM);
  EXPECT_EQ(pass.cmd.uscsi_status, -1) << "the legacy path writes no field";
  pass.cmd.uscsi_buflen = 0xFFFF'FFFF;  // 8 + CDB + data wraps in 32 bits
  if (sizeof(std::size_t) == 4) {
    EXPECT_EQ(do_scsi(&path, &pass.cmd), ENOMEM);
  }
}

TEST_P(SgScsi, OnlyARequestThatWasHandedOverWritesTheFields) {
  host.fail_open(GetParam().direct() ? node : sim::control_node, EACCES);
  Pass pass(Bytes(16));
  EXPECT_EQ(do_scsi(&path, &pass.cmd), GetParam().direct() ? EACCES : ENODEV);
  EXPECT_EQ(pass.cmd.uscsi_status, GetParam().direct() ? -1 : 0);
}

TEST_F(DiskTest, IndirectRequestsPutTheDataPointerBackWhateverHappens) {
  unsigned char cdb[6] = {0x12, 0, 0, 0, 36, 0};
  Bytes data(36);
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.cmd_len = sizeof cdb;
  header.cmdp = cdb;
  header.dxfer_direction = SG_DXFER_FROM_DEV;
  header.dxferp = data.data();
  header.dxfer_len = static_cast<unsigned>(data.size());
  const auto send = [&header](unsigned hi) {
    errno = 0;
    return ddl_indirect_ioctl(0x5678, hi, SG_IO, 0x800, &header);
  };
  EXPECT_EQ(send(0x1234), 0);
  EXPECT_EQ(header.dxferp, data.data());
  EXPECT_EQ(data[8], 'K');
  EXPECT_EQ(only_request().control_request, static_cast<unsigned long>(SG_IO));
  EXPECT_EQ(send(0), -1);
  EXPECT_EQ(errno, ENODEV) << "no such device";
  fail_ioctl(EIO);
  EXPECT_EQ(send(0x1234), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(header.dxferp, data.data());
  host.fail_open(sim::control_node, ENOENT);
  EXPECT_EQ(send(0x1234), 19);
  EXPECT_EQ(header.dxferp, data.data());
}

TEST_F(DiskTest, OtherIndirectRequestsUseTheDriversOwnCode) {
  alignas(4) unsigned char legacy[64] = {0, 0, 0, 0, 36, 0, 0, 0, 0x12, 0, 0, 0, 36, 0};
  EXPECT_EQ(ddl_indirect_ioctl(0x5678, 0x1234, 1, 0x800, legacy), 0);
  const Request request = only_request();
  EXPECT_EQ(request.control_request, sim::indirect_request);
  EXPECT_EQ(request.oflags, 0x800u);
  EXPECT_EQ(legacy[16], 'K');
  EXPECT_EQ(ddl_indirect_ioctl(0x5678, 0x1234, 0x1234, 0, legacy), -1);
  EXPECT_EQ(errno, ENOTTY);
}

// --- the interface version ---

TEST_F(DiskTest, OnlyTheWhole32SelectsTheNode) {
  EXPECT_STREQ(scsi_version, "35");
  for (const char *version : {"32", "35", "3", "320", "", "99"}) {
    kzscsi_set_version(version);
    EXPECT_EQ(scsi_version, version) << "the text is not copied";
    Pass pass(Bytes(36));
    EXPECT_EQ(do_scsi(&path, &pass.cmd), 0);
    EXPECT_EQ(only_request().through_control_node, std::string(version) != "32") << version;
  }
  kzscsi_set_version(nullptr);
  EXPECT_STREQ(scsi_version, "35");
}

/// Whether a change of version has to wait for a command that is under way.
class VersionLock : public DiskTest {
 protected:
  template <class Command>
  bool change_waits_for(Command command) {
    std::promise<void> entered, may_finish;
    host.inject(node, {.before = [&] {
                  entered.set_value();
                  may_finish.get_future().wait();
                }});
    auto sender = std::async(std::launch::async, command);
    entered.get_future().wait();
    auto change = std::async(std::launch::async, [] { kzscsi_set_version("32"); });
    const bool waited = change.wait_for(100ms) == std::future_status::timeout;
    may_finish.set_value();
    EXPECT_EQ(sender.get(), 0);
    change.get();
    kzscsi_set_version(nullptr);
    return waited;
  }
};

TEST_F(VersionLock, HeldAcrossTheCommandOnlyWhenAsked) {
  unsigned char list[8] = {0, 0, 0, 0, 0, 0, 0, 1};
  const std::function<int()> commands[] = {
      [this] {
        int length = 0;
        unsigned char *data = nullptr;
        const int result = do_inquiry(&path, 0, 0, 0, &length, &data);
        std::free(data);
        return result;
      },
      [this] {
        Pass pass(Bytes(64));
        return do_scsi(&path, &pass.cmd);
      },
      [this] {
        unsigned char *data = nullptr;
        const int result = do_rtpg(&path, &data);
        std::free(data);
        return result;
      },
      [this, &list] { return do_stpg(&path, list, sizeof list); },
  };
  use_disk({.groups = {{.id = 1, .ports = {1}}}});
  for (const int needed : {0, 1}) {
    if (needed != 0) set_scsi_version_lock_needed();
    EXPECT_EQ(is_scsi_version_lock_needed(), needed);
    EXPECT_EQ(scsi_version_lock_needed, needed);
    for (const auto &command : commands)
      EXPECT_EQ(change_waits_for(command), needed == 1) << &command - commands;
    EXPECT_FALSE(change_waits_for([this] { return do_tur(&path); }));
  }
  reset_scsi_lock_needed();
  EXPECT_EQ(is_scsi_version_lock_needed(), 0);
}

// --- the probes ---

/// A file or a name of the machine, and what a probe makes of it.
struct Probe {
  std::optional<std::string> says;
  int answer;
};

void PrintTo(const Probe &probe, std::ostream *out) { *out << probe.answer; }

class CpuProbe : public DiskTest, public testing::WithParamInterface<Probe> {};
INSTANTIATE_TEST_SUITE_P(
    , CpuProbe,
    testing::Values(Probe{"processor  : 0\narch       : IA-64\n", 1},
                    Probe{"arch : IA-64 rev 2\n", 1}, Probe{"arch: IA-64\n", 0},
                    Probe{"architecture : IA-64\n", 0}, Probe{"arch :\narch : x86\n", 0},
                    Probe{"\n:\narch \n", 0}, Probe{"arch : ia-64\n", 0}, Probe{std::nullopt, 0},
                    // The 80-byte buffer cuts the line: what follows counts as a line of its own.
                    Probe{std::string(79, 'x') + "arch : IA-64\n", 1}));

TEST_P(CpuProbe, LooksForIa64Once) {
  host.set_file("/proc/cpuinfo", GetParam().says);
  EXPECT_EQ(ddl_is_arch_ia64(), GetParam().answer);
  host.set_file("/proc/cpuinfo", GetParam().answer == 0 ? "arch : IA-64\n" : "");
  EXPECT_EQ(ddl_is_arch_ia64(), GetParam().answer);
}

class MachineProbe : public DiskTest, public testing::WithParamInterface<Probe> {};
INSTANTIATE_TEST_SUITE_P(, MachineProbe,
                         testing::Values(Probe{"x86_64", 1}, Probe{"ia64", 1}, Probe{"ppc64", 1},
                                         Probe{"i686", 0}, Probe{"ppc64le", 0},
                                         Probe{std::nullopt, 0}));  // uname fails

TEST_P(MachineProbe, KnowsThe64BitNamesAndAsksOnce) {
  host.set_machine(GetParam().says);
  EXPECT_EQ(ddl_is_linux_64(), GetParam().answer);
  host.set_machine(GetParam().answer != 0 ? "i686" : "x86_64");
  EXPECT_EQ(ddl_is_linux_64(), GetParam().answer);
}

TEST_F(DiskTest, DriverMajors) {
  host.set_file("/proc/devices",
                "Character devices:\n 21 sg\n 99 kz\n\nBlock devices:\n  8 sd\n252 kz\n65 sd\n"
                "253 kzx\n");
  dev_t majors[4] = {};
  EXPECT_EQ(is_driver_configured("sd", majors), 2);
  EXPECT_EQ(majors[0], 8u);
  EXPECT_EQ(majors[1], 65u);
  EXPECT_EQ(is_driver_configured("kz", majors), 1);
  EXPECT_EQ(majors[0], 252u);
  EXPECT_EQ(is_driver_configured("sg", majors), -1) << "a character device";
  for (const auto &text : {std::optional<std::string>("Character devices:\n  8 sd\n"), {}}) {
    host.set_file("/proc/devices", text);
    EXPECT_EQ(is_driver_configured("sd", majors), -1);
  }
}

TEST(InquiryData, AnsiVersionIsTheLowThreeBits) {
  const unsigned char data[3] = {0, 0, 0x83};
  unsigned char ansi = 0;
  get_ansi_from_inqdata(data, &ansi);
  EXPECT_EQ(ansi, 3);
  EXPECT_EQ(get_metanode_ctlrs(), -1);
}

}  // namespace
}  // namespace kzddl_test
