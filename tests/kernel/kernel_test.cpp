// The library on a real kernel's disks, by the direct route or, where KZTEST_ROUTE says so, through
// the control service: with SG_IO and, where /proc/cpuinfo names an IA-64 machine, with legacy
// requests.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <optional>
#include <set>
#include <thread>

#include "base/bytes.h"
#include "base/memory.h"
#include "kernel/control_service.h"
#include "kernel/kernel_disks.h"

namespace kzddl_test {
namespace {

/// The service that the indirect route needs, for all tests of a run.
class ServiceEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    if (indirect()) service_.emplace();
  }
  void TearDown() override {
    if (service_.has_value()) {
      EXPECT_EQ(service_->stop(SIGTERM), 0);
    }
  }

 private:
  std::optional<ControlService> service_;
};

[[maybe_unused]] const testing::Environment *const environment =
    testing::AddGlobalTestEnvironment(new ServiceEnvironment);

using kzddl::Buffer;
using kzddl::load_be16;
using kzddl::load_be32;

constexpr unsigned char reservation_conflict = 0x18;

bool legacy() { return ddl_is_arch_ia64() == 1; }

/// Results of a command that ends with a status: SG_IO says it shifted, and with driver status 8.
int check_condition() { return legacy() ? -2 : -9; }
int conflict() { return legacy() ? -24 : -12; }

struct Answer {
  int error = 0;
  int length = 0;
  Buffer data;
};

template <class Send>
Answer answer_to(const Send &send) {
  Answer answer;
  unsigned char *data = nullptr;
  answer.error = send(&answer.length, &data);
  answer.data.reset(data);
  return answer;
}

Answer inquiry(odh path, int evpd = 0, int page = 0) {
  return answer_to([&](int *n, auto **data) { return do_inquiry(&path, evpd, page, 0, n, data); });
}

Answer capacity(odh path) {
  return answer_to([&](int *n, auto **data) { return do_read_capacity(&path, 0, 0, 0, n, data); });
}

Answer port_groups(odh path) {
  return answer_to([&](int *, auto **data) { return do_rtpg(&path, data); });
}

/// A command of the caller's own.
struct Command {
  std::vector<unsigned char> cdb;
  std::vector<unsigned char> data;
  bool read = false;

  int error = 0;
  int status = 0;
  std::array<unsigned char, 32> sense{};

  Command &send(odh path) {
    uscsi_cmd request{};
    request.uscsi_flags = read ? USCSI_READ : 0;
    request.uscsi_cdb = cdb.data();
    request.uscsi_cdblen = static_cast<std::uint8_t>(cdb.size());
    request.uscsi_bufaddr = data.data();
    request.uscsi_buflen = static_cast<std::uint32_t>(data.size());
    request.uscsi_rqbuf = sense.data();
    request.uscsi_rqlen = static_cast<std::uint8_t>(sense.size());
    error = do_scsi(&path, &request);
    status = legacy() ? -error : request.uscsi_status;
    return *this;
  }
};

/// Unit attentions that an earlier test left are told by the next command: this one.
void settle(odh path) {
  for (int attempt = 0;
       attempt < 8 && Command{.cdb = std::vector<unsigned char>(6)}.send(path).error != 0;
       ++attempt) {
  }
}

class Kernel : public testing::Test {
 protected:
  Kernel() {
    kzscsi_set_version(indirect() ? "35" : "32");
    EXPECT_EQ(debug.size(), 2u);
    EXPECT_EQ(paths.size(), 2u);
    for (const auto *disks : {&debug, &paths, &network})
      for (const KernelDisk &disk : *disks)
        settle(disk.path());
  }
  ~Kernel() override { kzscsi_set_version(nullptr); }

  std::vector<KernelDisk> debug = debug_disks();
  std::vector<KernelDisk> paths = two_paths();
  std::vector<KernelDisk> network = network_disks();
};

TEST_F(Kernel, InquiryTellsTheMakeAndThePages) {
  for (const auto &[disk, vendor] : {std::pair{debug.at(0), "Linux   "},
                                     {paths.at(0), "LIO-ORG "},
                                     {network.at(0), "IET     "}}) {
    const Answer standard = inquiry(disk.path());
    ASSERT_EQ(standard.error, 0) << vendor;
    EXPECT_EQ(standard.length, standard.data[4] + 5);
    EXPECT_EQ(std::memcmp(standard.data.get() + 8, vendor, 8), 0) << vendor;

    const Answer pages = inquiry(disk.path(), 1, 0x00);
    ASSERT_EQ(pages.error, 0) << vendor;
    const std::set<int> codes(pages.data.get() + 4, pages.data.get() + pages.length);
    for (const int code : {0x80, 0x83}) {
      EXPECT_TRUE(codes.contains(code)) << vendor;
      const Answer page = inquiry(disk.path(), 1, code);
      ASSERT_EQ(page.error, 0) << vendor;
      EXPECT_EQ(page.data[1], code);
      EXPECT_EQ(page.length, page.data[3] + 4);
    }
    EXPECT_EQ(inquiry(disk.path(), 1, 0xDF).error, check_condition()) << vendor;
  }
}

TEST_F(Kernel, CapacityIsTheKernelsOwn) {
  for (const KernelDisk &disk : {debug.at(0), paths.at(0), paths.at(1), network.at(0)}) {
    odh path = disk.path();
    EXPECT_EQ(do_tur(&path), 0) << disk.node;
    const Answer answer = capacity(path);
    ASSERT_EQ(answer.error, 0) << disk.node;
    EXPECT_EQ(answer.length, 8);
    std::uint64_t sectors = 0;
    std::ifstream("/sys/block" / std::filesystem::path(disk.node).filename() / "size") >> sectors;
    EXPECT_EQ(load_be32(&answer.data[0]) + std::uint64_t{1}, sectors) << disk.node;
    EXPECT_EQ(load_be32(&answer.data[4]), 512u);
  }
}

TEST_F(Kernel, ModePagesAreWhatTheDiskHas) {
  odh path = debug.at(0).path();
  for (const auto &[page, length] : {std::pair{0x03, 24}, {0x08, 20}}) {
    unsigned char *data = nullptr;
    int size = 0;
    int reserved = -1;
    ASSERT_EQ(do_mode_sense(&path, 0, 0, page, &size, &data, &reserved), 0);
    const Buffer owner(data);
    EXPECT_EQ(size, length);
    EXPECT_EQ(data[0] & 0x3F, page);
    EXPECT_EQ(reserved, 0);
  }
  unsigned char *data = nullptr;
  int size = 0;
  int reserved = -1;
  EXPECT_EQ(do_mode_sense(&path, 0, 0, 0x04, &size, &data, &reserved), check_condition());
  EXPECT_EQ(data, nullptr);
}

TEST_F(Kernel, GeometryNeedsBothPages) {
  disk_geom geom{};
  EXPECT_EQ(get_geometry_info(debug.at(0).node.c_str(), &geom), check_condition());
  EXPECT_EQ(get_geometry_info(paths.at(0).node.c_str(), &geom), check_condition());
  ASSERT_EQ(get_geometry_info(network.at(0).node.c_str(), &geom), 0);
  EXPECT_EQ(geom.sectors_per_track, 32u);
  EXPECT_EQ(geom.heads, 4u);
  EXPECT_EQ(geom.cylinders, 256u);
  EXPECT_EQ(geom.bytes_per_sector, 512u);
  EXPECT_EQ(geom.rotation_rate, 7200u);
  EXPECT_EQ(geom.flags, 0u);
  EXPECT_EQ(geom.capacity, 32768u);
}

TEST_F(Kernel, BlocksWrittenByOnePathAreReadByTheOther) {
  constexpr unsigned blocks = 21;  // two whole chunks and a part
  std::vector<unsigned char> written(blocks * 512);
  for (std::size_t i = 0; i < written.size(); ++i)
    written[i] = static_cast<unsigned char>(i * 7 + i / 512 + getpid());
  odh a = paths.at(0).path();
  odh b = paths.at(1).path();
  ASSERT_EQ(do_diskio(&a, 1000, blocks, written.data(), KZDDL_DISKIO_WRITE), 0);
  std::vector<unsigned char> read(written.size());
  ASSERT_EQ(do_diskio(&b, 1000, blocks, read.data(), KZDDL_DISKIO_READ), 0);
  EXPECT_EQ(read, written);
  ASSERT_EQ(do_diskio(&b, 1000, blocks, nullptr, KZDDL_DISKIO_PROBE), 0);
  // The last block is there, the one behind it is not.
  EXPECT_EQ(do_diskio(&a, 32767, 1, read.data(), KZDDL_DISKIO_READ), 0);
  EXPECT_EQ(do_diskio(&a, 32767, 2, read.data(), KZDDL_DISKIO_READ), -1);
  EXPECT_EQ(do_diskio(&a, 32768, 1, written.data(), KZDDL_DISKIO_WRITE), -1);
}

TEST_F(Kernel, BothPathsNameTheSameUnit) {
  char ids[3][KZDDL_LUN_ID_SIZE] = {};
  char serials[3][KZDDL_CABINET_ID_SIZE] = {};
  const KernelDisk disks[] = {paths.at(0), paths.at(1), debug.at(0)};
  for (int i = 0; i < 3; ++i) {
    odh path = disks[i].path();
    unsigned char type = 0;
    ASSERT_EQ(get_lun_id(&path, 0, ids[i], &type, "fallback"), 0);
    EXPECT_EQ(type & 0x0F, 3) << disks[i].node;
    ASSERT_EQ(get_cabinet_id(&path, serials[i]), 0);
  }
  EXPECT_STREQ(ids[0], ids[1]);
  EXPECT_STRNE(ids[0], ids[2]);
  EXPECT_STREQ(serials[0], "0123456789abcdef");
  EXPECT_STREQ(serials[0], serials[1]);

  unsigned group[2] = {};
  unsigned port[2] = {};
  for (int i = 0; i < 2; ++i) {
    const Answer page = inquiry(disks[i].path(), 1, 0x83);
    ASSERT_EQ(page.error, 0);
    char naa[KZDDL_NAA_TEXT_SIZE] = {};
    unsigned unit_group = 0;
    EXPECT_EQ(get_dev_id_page(page.data.get(), naa, &group[i], &port[i], &unit_group), 0);
    EXPECT_EQ(group[i], static_cast<unsigned>(i));
  }
  EXPECT_NE(port[0], port[1]);
}

pgr_out_param keys(unsigned char key, unsigned char service_action_key) {
  pgr_out_param param{};
  param.key[7] = key;
  param.service_action_key[7] = service_action_key;
  return param;
}

unsigned pgr(const KernelDisk &disk, unsigned action, pgr_out_param param, unsigned type = 0) {
  odh path = disk.path();
  return do_pgr_out(&path, action, 0, type, &param);
}

std::vector<unsigned char> pgr_read(const KernelDisk &disk, unsigned action) {
  odh path = disk.path();
  pgr_in_data *data = nullptr;
  EXPECT_EQ(do_pgr_in(&path, action, &data), unsigned{PGR_OK});
  const kzddl::Owned<pgr_in_data> owner(data);
  if (data == nullptr) return {};
  return {data->data, data->data + data->length};
}

TEST_F(Kernel, APersistentReservationKeepsTheOtherPathOut) {
  enum { register_key, reserve, release, clear, preempt, read_keys = 0, read_reservation };
  constexpr unsigned exclusive = 3;
  const KernelDisk &holder = paths.at(0);
  const KernelDisk &other = paths.at(1);
  odh a = holder.path();
  odh b = other.path();
  std::vector<unsigned char> block(512);

  ASSERT_EQ(pgr(holder, register_key, keys(0, 0xA1)), unsigned{PGR_OK});
  ASSERT_EQ(pgr(holder, reserve, keys(0xA1, 0), exclusive), unsigned{PGR_OK});
  EXPECT_EQ(pgr_read(other, read_keys), (std::vector<unsigned char>{0, 0, 0, 0, 0, 0, 0, 0xA1}));
  const auto reservation = pgr_read(other, read_reservation);
  ASSERT_EQ(reservation.size(), 16u);
  EXPECT_EQ(reservation[7], 0xA1);
  EXPECT_EQ(reservation[13], exclusive);

  EXPECT_EQ(pgr(other, reserve, keys(0, 0), exclusive), unsigned{PGR_CONFLICT});
  EXPECT_EQ(do_diskio(&a, 5, 1, block.data(), KZDDL_DISKIO_WRITE), 0);
  EXPECT_EQ(do_diskio(&b, 5, 1, block.data(), KZDDL_DISKIO_WRITE), -1);
  EXPECT_EQ(do_diskio(&b, 5, 1, block.data(), KZDDL_DISKIO_PROBE),
            indirect() ? KZDDL_DISKIO_CONFLICT : -1);
  EXPECT_EQ(capacity(b).error, conflict());
  EXPECT_EQ(inquiry(b).error, 0);

  // The other takes it over: what the first then hears is a unit attention, then conflicts.
  ASSERT_EQ(pgr(other, register_key, keys(0, 0xB2)), unsigned{PGR_OK});
  ASSERT_EQ(pgr(other, preempt, keys(0xB2, 0xA1), exclusive), unsigned{PGR_OK});
  EXPECT_EQ(capacity(a).error, check_condition());
  EXPECT_EQ(capacity(a).error, conflict());
  EXPECT_EQ(capacity(b).error, 0);
  ASSERT_EQ(pgr(other, clear, keys(0xB2, 0)), unsigned{PGR_OK});
  EXPECT_TRUE(pgr_read(holder, read_keys).empty());
  EXPECT_EQ(capacity(a).error, 0);
}

TEST_F(Kernel, AnOldReservationIsFoundByModeSense) {
  const odh a = paths.at(0).path();
  odh b = paths.at(1).path();
  ASSERT_EQ((Command{.cdb = {0x16, 0, 0, 0, 0, 0}}.send(a).error), 0);
  EXPECT_EQ((Command{.cdb = {0x16, 0, 0, 0, 0, 0}}.send(b).status), reservation_conflict);
  // Legacy requests tell the check no more than that MODE SENSE failed.
  EXPECT_EQ(do_diskio_chk_rsvn(&b), legacy() ? -1 : KZDDL_DISKIO_CONFLICT);
  ASSERT_EQ((Command{.cdb = {0x17, 0, 0, 0, 0, 0}}.send(a).error), 0);
  EXPECT_EQ(do_diskio_chk_rsvn(&b), -1) << "this target refuses mode page 0";
  odh with_page_0 = network.at(0).path();
  EXPECT_EQ(do_diskio_chk_rsvn(&with_page_0), 0);
}

TEST_F(Kernel, ReservationsCanBeUnsupported) {
  EXPECT_EQ(pgr(debug.at(0), 0, keys(0, 1)), unsigned{PGR_UNSUPPORTED});
  odh path = debug.at(0).path();
  pgr_in_data *data = nullptr;
  EXPECT_EQ(do_pgr_in(&path, 0, &data), unsigned{PGR_UNSUPPORTED});
  EXPECT_EQ(data, nullptr);
}

TEST_F(Kernel, AGroupChangesItsStateForBothPaths) {
  enum { optimized, nonoptimized, standby };
  odh a = paths.at(0).path();
  odh b = paths.at(1).path();
  const auto set_second = [&a](unsigned char state) {
    unsigned char list[] = {0, 0, 0, 0, state, 0, 0, 1};
    return do_stpg(&a, list, sizeof list);
  };
  ASSERT_EQ(set_second(standby), 0);
  // SG_IO tries again after the unit attention that the change raised, a legacy request does not.
  if (legacy()) {
    EXPECT_EQ(port_groups(b).error, check_condition());
  }
  for (const odh &path : {a, b}) {
    const Answer reply = port_groups(path);
    ASSERT_EQ(reply.error, 0) << path.devname;
    EXPECT_EQ(get_owner_state(reply.data.get(), 0), optimized);
    EXPECT_EQ(get_owner_state(reply.data.get(), 1), standby);
    EXPECT_EQ(get_owner_state(reply.data.get(), 2), -1);
  }
  settle(a);
  Command ready{.cdb = std::vector<unsigned char>(6)};
  EXPECT_EQ(ready.send(b).status, 2);
  if (!legacy()) {
    EXPECT_EQ(ready.sense[2] & 0x0F, 2);
    EXPECT_EQ(load_be16(&ready.sense[12]), 0x040B);
  }
  ASSERT_EQ(set_second(optimized), 0);
  settle(b);
  EXPECT_EQ(do_tur(&b), 0);
  // The indirect variant tells the status as it is.
  EXPECT_EQ(set_second(15), indirect() && !legacy() ? -check_condition() : check_condition());
}

TEST_F(Kernel, RequestsHaveLimits) {
  const KernelDisk &disk = debug.at(0);
  // A page of data is all that a legacy request carries.
  Command page{.cdb = {0x28, 0, 0, 0, 0, 0, 0, 0, 9, 0}, .data = std::vector<unsigned char>(4608)};
  page.read = true;
  EXPECT_EQ(page.send(disk.path()).error, legacy() ? EINVAL : 0);

  // The control node goes by the number, and takes only those of disks.
  odh file{};
  std::strcpy(file.devname, "/dev/null");
  file.dev = find_device_number("/dev/null");
  EXPECT_EQ(inquiry(file).error, indirect() ? ENODEV : ENOTTY);
  std::strcpy(file.devname, "/dev/none");
  file.dev = 0;
  EXPECT_EQ(inquiry(file).error, indirect() ? ENODEV : ENOENT);
  odh path = disk.path();
  int length = 0;
  EXPECT_EQ(do_inquiry(&path, 0, 0, O_DIRECTORY, &length, nullptr), ENOTDIR);
}

TEST_F(Kernel, ADiskMayVanishInUse) {
  const KernelDisk disk = debug.at(1);
  const odh path = disk.path();
  const std::string kept = "/tmp/kept-node";
  ASSERT_EQ(mknod(kept.c_str(), S_IFBLK | 0600, static_cast<dev_t>(path.dev)), 0);
  std::atomic<bool> gone = false;
  std::array<std::set<int>, 4> results;
  std::vector<std::thread> users;
  for (auto &seen : results) {
    users.emplace_back([&] {
      bool last = false;
      do {
        last = gone;
        seen.insert(inquiry(path).error);
      } while (!last);
    });
  }
  disk.control("delete", "1");
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  gone = true;
  for (std::thread &user : users)
    user.join();
  for (const auto &seen : results) {
    EXPECT_TRUE(seen.contains(indirect() ? ENODEV : ENOENT));
    for (const int error : seen)  // no such device, or the host statuses "no connection", "error"
      EXPECT_TRUE((std::set{0, ENOENT, ENXIO, ENODEV, -1, -7}.contains(error))) << error;
  }
  EXPECT_EQ(debug_disks().size(), 1u);
  odh with_node = path;
  std::strcpy(with_node.devname, kept.c_str());
  EXPECT_EQ(inquiry(with_node).error, indirect() ? ENODEV : ENXIO);
  unlink(kept.c_str());

  const std::string host = "/sys/class/scsi_host/host" + std::to_string(disk.address[0]);
  std::ofstream(host + "/scan") << "- - -" << std::flush;
  for (int i = 0; i < 100 && debug_disks().size() < 2; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ASSERT_EQ(debug_disks().size(), 2u);
  EXPECT_EQ(inquiry(debug_disks().at(1).path()).error, 0);
}

/// Runs `act` as a user without privileges, in a process of its own.
template <class Act>
int as_nobody(const Act &act) {
  const pid_t child = fork();
  if (child == 0) _exit(setuid(65534) == 0 ? act() : 100);
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Kernel, UsersWithoutPrivilegeMayAskButNotChange) {
  if (indirect()) {
    odh path = debug.at(0).path();
    EXPECT_EQ(as_nobody([&] { return -inquiry(path).error; }), ENODEV) << "the node is root's";
    return;
  }
  const KernelDisk &disk = paths.at(0);
  odh path = disk.path();
  ASSERT_EQ(chmod(path.devname, 0666), 0);
  std::vector<unsigned char> block(512);
  EXPECT_EQ(as_nobody([&] { return inquiry(path).error; }), 0);
  EXPECT_EQ(as_nobody([&] { return capacity(path).error; }), 0);
  EXPECT_EQ(as_nobody([&] { return port_groups(path).error; }), 0);
  EXPECT_EQ(as_nobody([&] { return -do_diskio(&path, 0, 1, block.data(), KZDDL_DISKIO_READ); }), 0);
  EXPECT_EQ(as_nobody([&] { return -do_diskio(&path, 0, 1, block.data(), KZDDL_DISKIO_WRITE); }),
            1);
  EXPECT_EQ(as_nobody([&] { return pgr(disk, 0, keys(0, 1)); }), int{PGR_ERROR});
}

}  // namespace
}  // namespace kzddl_test
