// Interface version, its lock, and the probes. Each case runs in a process of its own.
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "support/disk_test.h"

namespace kzddl_test {
namespace {

using namespace std::chrono_literals;

TEST_F(DiskTest, NullRestoresTheDefaultVersion) {
  EXPECT_STREQ(scsi_version, "35");
  static const char text[] = "32";
  kzscsi_set_version(text);
  EXPECT_EQ(scsi_version, text) << "the text is not copied";
  kzscsi_set_version(nullptr);
  EXPECT_STREQ(scsi_version, "35");
}

TEST_F(DiskTest, LockNeededFlag) {
  EXPECT_EQ(is_scsi_version_lock_needed(), 0);
  set_scsi_version_lock_needed();
  EXPECT_EQ(scsi_version_lock_needed, 1);
  reset_scsi_lock_needed();
  EXPECT_EQ(is_scsi_version_lock_needed(), 0);
}

/// Whether a change of version has to wait for a command that is under way.
class VersionLock : public DiskTest {
 protected:
  template <class Command>
  bool change_waits_for(Command command) {
    std::promise<void> entered;
    std::promise<void> may_finish;
    host.inject(node, {.before = [&] {
                  entered.set_value();
                  may_finish.get_future().wait();
                }});
    std::thread sender(command);
    entered.get_future().wait();
    auto change = std::async(std::launch::async, [] { kzscsi_set_version("32"); });
    const bool waited = change.wait_for(100ms) == std::future_status::timeout;
    may_finish.set_value();
    sender.join();
    change.get();
    EXPECT_STREQ(scsi_version, "32");
    kzscsi_set_version(nullptr);
    return waited;
  }

  void inquire() {
    int length = 0;
    unsigned char *data = nullptr;
    ASSERT_EQ(do_inquiry(&path, 0, 0, 0, &length, &data), 0);
    std::free(data);
  }

  void pass_through() {
    unsigned char cdb[6] = {};
    uscsi_cmd cmd{};
    cmd.uscsi_cdb = cdb;
    cmd.uscsi_cdblen = sizeof cdb;
    ASSERT_EQ(do_scsi(&path, &cmd), 0);
  }
};

TEST_F(VersionLock, HeldAcrossTheCommandOnlyWhenAsked) {
  set_scsi_version_lock_needed();
  EXPECT_TRUE(change_waits_for([this] { inquire(); }));
  EXPECT_TRUE(change_waits_for([this] { pass_through(); }));
  EXPECT_FALSE(change_waits_for([this] { EXPECT_EQ(do_tur(&path), 0); }));
  reset_scsi_lock_needed();
  EXPECT_FALSE(change_waits_for([this] { inquire(); }));
  EXPECT_FALSE(change_waits_for([this] { pass_through(); }));
}

TEST_F(VersionLock, CommandsAndChangesFromManyThreads) {
  set_scsi_version_lock_needed();
  std::atomic<bool> stop = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!stop)
        inquire();
    });
    threads.emplace_back([&] {
      while (!stop)
        EXPECT_EQ(do_tur(&path), 0);
    });
  }
  for (int i = 0; i < 300; ++i) {
    kzscsi_set_version(i % 2 == 0 ? "32" : nullptr);
    if (i % 16 == 0) host.take_requests();
    std::this_thread::yield();
  }
  stop = true;
  for (std::thread &thread : threads)
    thread.join();
}

struct ProbeCase {
  const char *name;
  const char *cpuinfo;
  int ia64;
};

template <class Case>
std::string case_name(const testing::TestParamInfo<Case> &info) {
  return info.param.name;
}

class CpuProbe : public DiskTest, public testing::WithParamInterface<ProbeCase> {};
INSTANTIATE_TEST_SUITE_P(, CpuProbe,
                         testing::Values(ProbeCase{"padded", "processor  : 0\narch       : IA-64\n",
                                                   1},
                                         ProbeCase{"valueGoesOn", "arch : IA-64 rev 2\n", 1},
                                         ProbeCase{"noBlankBeforeColon", "arch: IA-64\n", 0},
                                         ProbeCase{"anotherKey", "architecture : IA-64\n", 0},
                                         ProbeCase{"anotherValue", "arch :\narch : x86\n", 0},
                                         ProbeCase{"noKeyNoColon", "\n:\narch \n", 0},
                                         ProbeCase{"lowerCase", "arch : ia-64\n", 0}),
                         case_name<ProbeCase>);

TEST_P(CpuProbe, LooksForIa64) {
  host.set_file("/proc/cpuinfo", GetParam().cpuinfo);
  EXPECT_EQ(ddl_is_arch_ia64(), GetParam().ia64);
  host.set_file("/proc/cpuinfo", "");
  EXPECT_EQ(ddl_is_arch_ia64(), GetParam().ia64) << "the file is read once";
}

TEST_F(DiskTest, LongCpuinfoLinesAreReadInPieces) {
  // The 80-byte buffer cuts the line: what follows counts as a line of its own.
  host.set_file("/proc/cpuinfo", std::string(79, 'x') + "arch : IA-64\n");
  EXPECT_EQ(ddl_is_arch_ia64(), 1);
}

TEST_F(DiskTest, UnreadableCpuinfoIsNotTriedAgain) {
  host.set_file("/proc/cpuinfo", std::nullopt);
  EXPECT_EQ(ddl_is_arch_ia64(), 0);
  host.set_file("/proc/cpuinfo", "arch : IA-64\n");
  EXPECT_EQ(ddl_is_arch_ia64(), 0);
}

struct MachineCase {
  const char *name;
  const char *machine;  // null: uname fails
  int is_64;
};

class MachineProbe : public DiskTest, public testing::WithParamInterface<MachineCase> {};
INSTANTIATE_TEST_SUITE_P(
    , MachineProbe,
    testing::Values(MachineCase{"x86_64", "x86_64", 1}, MachineCase{"ia64", "ia64", 1},
                    MachineCase{"ppc64", "ppc64", 1}, MachineCase{"i686", "i686", 0},
                    MachineCase{"longerName", "ppc64le", 0}, MachineCase{"failure", nullptr, 0}),
    case_name<MachineCase>);

TEST_P(MachineProbe, KnowsThe64BitNames) {
  const char *machine = GetParam().machine;
  host.set_machine(machine != nullptr ? std::optional<std::string>(machine) : std::nullopt);
  EXPECT_EQ(ddl_is_linux_64(), GetParam().is_64);
  host.set_machine(GetParam().is_64 != 0 ? "i686" : "x86_64");
  EXPECT_EQ(ddl_is_linux_64(), GetParam().is_64) << "asked once";
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
  host.set_file("/proc/devices", "Character devices:\n  8 sd\n");
  EXPECT_EQ(is_driver_configured("sd", majors), -1);
  host.set_file("/proc/devices", std::nullopt);
  EXPECT_EQ(is_driver_configured("sd", majors), -1);
}

TEST(InquiryData, AnsiVersionIsTheLowThreeBits) {
  unsigned char data[3] = {0, 0, 0x83};
  unsigned char ansi = 0;
  get_ansi_from_inqdata(data, &ansi);
  EXPECT_EQ(ansi, 3);
  EXPECT_EQ(get_metanode_ctlrs(), -1);
}

}  // namespace
}  // namespace kzddl_test
