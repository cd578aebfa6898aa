// The control service on a real kernel: what its callers see, and what they cannot do to it.
#include <fcntl.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <iomanip>
#include <iostream>
#include <map>
#include <random>

#include "base/descriptor.h"
#include "kernel/control_service.h"
#include "kernel/kernel_disks.h"
#include "support/run_tool.h"
#include "support/setting.h"

namespace kzddl_test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr unsigned indirect_request = 0x4A4F5825;

/// The record that the driver reads.
struct Record {
  std::uint64_t device;
  std::uint32_t request;
  std::uint32_t open_flags;
  void *argument;
};

int inquiry(odh path) {
  unsigned char *data = nullptr;
  int length = 0;
  const int error = do_inquiry(&path, 0, 0, 0, &length, &data);
  std::free(data);
  return error;
}

/// The target behind the network disk can be made to leave its requests unanswered.
class Target {
 public:
  Target() {
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
      std::string name;
      std::ifstream(entry.path() / "comm") >> name;
      if (name == "tgtd") pids_.push_back(std::atoi(entry.path().filename().c_str()));
    }
    EXPECT_FALSE(pids_.empty());
  }
  Target(const Target &) = delete;
  Target &operator=(const Target &) = delete;
  ~Target() { answer(); }

  void stick() const { signal(SIGSTOP); }
  void answer() const { signal(SIGCONT); }

 private:
  void signal(int number) const {
    for (const pid_t pid : pids_)
      kill(pid, number);
  }

  std::vector<pid_t> pids_;
};

/// Requests that a disk has not answered yet, as its kernel driver counts them.
long outstanding(const KernelDisk &disk) {
  const auto count = [&disk](const char *file) {
    long number = 0;
    std::ifstream(disk.directory / file) >> std::setbase(0) >> number;  // "0x1f"
    return number;
  };
  return count("iorequest_cnt") - count("iodone_cnt");
}

/// A request to a disk that does not answer. It has reached the disk.
class Stuck {
 public:
  explicit Stuck(const KernelDisk &disk) {
    const long before = outstanding(disk);
    thread_ = std::thread([this, path = disk.path()] { result_ = inquiry(path); });
    EXPECT_TRUE(soon([&] { return outstanding(disk) > before; }));
    EXPECT_EQ(result_, pending);
  }
  int wait() {
    thread_.join();
    return result_;
  }

 private:
  static constexpr int pending = -1000;
  std::atomic<int> result_ = pending;
  std::thread thread_;
};

class Control : public testing::Test {
 protected:
  Control() { kzscsi_set_version("35"); }

  const KernelDisk debug = debug_disks().at(0);
  const KernelDisk network = network_disks().at(0);
  const Target target;
};

TEST_F(Control, AUnitHasOneNameThatLeadsToItsBestPath) {
  const std::vector<KernelDisk> paths = two_paths();
  const auto set_first = [&paths](unsigned char state) {
    kzscsi_set_version("32");
    odh path = paths.at(1).path();
    unsigned char list[] = {0, 0, 0, 0, state, 0, 0, 0};
    EXPECT_EQ(do_stpg(&path, list, sizeof list), 0);
    kzscsi_set_version("35");
  };
  constexpr char unit[] = "6001405";  // what the kernel's target begins its identifiers with
  for (const std::size_t best : {0, 1}) {
    constexpr unsigned char optimized = 0;
    constexpr unsigned char standby = 2;
    set_first(best == 0 ? optimized : standby);
    const ControlService service;
    const auto block = names(block_names);
    const auto raw = names(raw_names);
    EXPECT_EQ(block.size(), 4u);
    EXPECT_EQ(raw.size(), 4u);
    const auto name = block.lower_bound(unit);
    ASSERT_TRUE(name != block.end() && name->first.starts_with(unit));
    EXPECT_EQ(name->second, paths.at(best).node);
    EXPECT_TRUE(std::filesystem::exists(paths.at(best).directory / "scsi_generic" /
                                        raw.at(name->first).substr(sizeof "/dev")));
    set_first(optimized);
  }
  EXPECT_FALSE(std::filesystem::exists("/dev/kz")) << "what the service made goes with it";

  const ControlService service;
  debug_disks().at(1).control("delete", "1");
  EXPECT_TRUE(soon([] { return names(block_names).size() == 3; }));
  std::ofstream("/sys/class/scsi_host/host" + std::to_string(debug.address[0]) + "/scan")
      << "- - -" << std::flush;
  EXPECT_TRUE(soon([] { return names(block_names).size() == 4 && names(raw_names).size() == 4; }));
}

/// One request, sent in some way, and all that came back.
struct Exchange {
  sg_io_hdr header{};
  std::vector<unsigned char> data;
  std::array<unsigned char, 64> sense{};

  Exchange(std::vector<unsigned char> cdb, int direction, std::size_t length)
      : data(length, 0xEE), cdb_(std::move(cdb)) {
    header.interface_id = 'S';
    header.dxfer_direction = direction;
    header.cmd_len = static_cast<unsigned char>(cdb_.size());
    header.cmdp = cdb_.data();
    header.mx_sb_len = sense.size();
    header.sbp = sense.data();
    header.dxfer_len = static_cast<unsigned>(length);
    header.dxferp = data.data();
    header.timeout = 20000;
    header.pack_id = 77;
    header.usr_ptr = this;
  }
  Exchange(const Exchange &) = delete;

  /// errno, or 0.
  int send(int fd, unsigned request, void *argument) {
    return ioctl(fd, request, argument) == -1 ? errno : 0;
  }

  void expect_same(const Exchange &other) const {
    EXPECT_EQ(header.status, other.header.status);
    EXPECT_EQ(header.masked_status, other.header.masked_status);
    EXPECT_EQ(header.host_status, other.header.host_status);
    EXPECT_EQ(header.driver_status, other.header.driver_status);
    EXPECT_EQ(header.resid, other.header.resid);
    EXPECT_EQ(header.sb_len_wr, other.header.sb_len_wr);
    EXPECT_EQ(header.info, other.header.info);
    EXPECT_EQ(header.pack_id, 77);
    EXPECT_EQ(header.usr_ptr, this);
    EXPECT_EQ(header.cmdp, cdb_.data());
    EXPECT_EQ(data, other.data);
    EXPECT_EQ(sense, other.sense);
  }

 private:
  std::vector<unsigned char> cdb_;
};

TEST_F(Control, ResultsArriveAsIfTheCallerHadAskedTheDevice) {
  const ControlService service(ControlService::no_names);
  kzddl::Descriptor direct;
  kzddl::Descriptor node;
  ASSERT_TRUE(direct.open(debug.node.c_str(), O_RDWR));
  ASSERT_TRUE(node.open(control_node, O_RDWR));
  constexpr std::size_t large = 124 * 1024;
  const unsigned char blocks = large / 512;
  struct Row {
    std::vector<unsigned char> cdb;
    int direction;
    std::size_t length;
  };
  const Row rows[] = {
      {{0, 0, 0, 0, 0, 0}, SG_DXFER_NONE, 0},
      {{0x12, 0, 0, 0, 255, 0}, SG_DXFER_FROM_DEV, 255},     // fewer bytes than were asked for
      {{0x12, 1, 0xDF, 0, 255, 0}, SG_DXFER_FROM_DEV, 255},  // sense data
      {{0x2A, 0, 0, 0, 0, 9, 0, 0, 2, 0}, SG_DXFER_TO_DEV, 1024},
      {{0x28, 0, 0, 0, 0, 8, 0, 0, 3, 0}, SG_DXFER_FROM_DEV, 1536},
      {{0x28, 0, 0, 0, 0, 8, 0, 0, blocks, 0}, SG_DXFER_FROM_DEV, large},
      {{0x12, 0, 0, 0, 255, 0}, 0, 255},  // no direction: refused
      {{0x12, 0, 0, 0, 255, 0}, SG_DXFER_NONE, 255},
      {std::vector<unsigned char>(40), SG_DXFER_NONE, 0},  // no CDB is so long
      {{}, SG_DXFER_NONE, 0},
  };
  for (const auto &[cdb, direction, length] : rows) {
    SCOPED_TRACE(testing::Message() << "CDB of " << cdb.size() << " bytes, direction " << direction
                                    << ", " << length << " bytes of data");
    Exchange expected(cdb, direction, length);
    const int error = expected.send(direct.get(), SG_IO, &expected.header);

    Exchange outer(cdb, direction, length);
    Record record{debug.path().dev, SG_IO, O_RDWR, outer.data.data()};
    outer.header.dxferp = &record;
    EXPECT_EQ(outer.send(node.get(), SG_IO, &outer.header), error);
    EXPECT_EQ(outer.header.dxferp, &record);
    outer.expect_same(expected);

    Exchange inner(cdb, direction, length);
    record.argument = &inner.header;
    EXPECT_EQ(inner.send(node.get(), indirect_request, &record), error);
    EXPECT_EQ(inner.header.dxferp, inner.data.data());
    inner.expect_same(expected);
  }
}

TEST_F(Control, LegacyRequestsCarryDataSenseAndPositiveResults) {
  const ControlService service(ControlService::no_names);
  kzddl::Descriptor node;
  ASSERT_TRUE(node.open(control_node, O_RDWR));
  struct Legacy {
    std::uint32_t in_length;
    std::uint32_t out_length;
    std::array<unsigned char, 64> rest;
  };
  const auto send = [&](Legacy &legacy) {
    Record record{debug.path().dev, SCSI_IOCTL_SEND_COMMAND, O_RDONLY, &legacy};
    const int result = ioctl(node.get(), indirect_request, &record);
    return result == -1 ? -errno : result;
  };
  Legacy good{0, 36, {0x12, 0, 0, 0, 36}};
  EXPECT_EQ(send(good), 0);
  EXPECT_EQ(std::memcmp(&good.rest[8], "Linux   ", 8), 0);
  EXPECT_EQ(good.rest[36], 0) << "behind what was asked for";
  Legacy failing{0, 0, {0x12, 1, 0xDF, 0, 36}};
  EXPECT_EQ(send(failing), 2);
  EXPECT_EQ(failing.rest[0] & 0x7F, 0x70);
  EXPECT_EQ(failing.rest[2] & 0x0F, 5) << "ILLEGAL REQUEST";
  EXPECT_EQ(failing.rest[16], 0);
  Legacy large{4097, 0, {0x3B}};
  EXPECT_EQ(send(large), -EINVAL);
}

TEST_F(Control, MistakenRequestsEndWithTheirError) {
  const ControlService service(ControlService::no_names);
  kzddl::Descriptor node;
  ASSERT_TRUE(node.open(control_node, O_RDWR));
  Exchange exchange({0x12, 0, 0, 0, 36, 0}, SG_DXFER_FROM_DEV, 36);
  const std::uint64_t device = debug.path().dev;
  void *const wild = reinterpret_cast<void *>(8);
  const auto indirect = [&](Record record) {
    return exchange.send(node.get(), indirect_request, &record);
  };
  EXPECT_EQ(exchange.send(node.get(), SCSI_IOCTL_SEND_COMMAND, &exchange.header), ENOTTY);
  EXPECT_EQ(indirect({device, SG_GET_VERSION_NUM, 0, &exchange.header}), ENOTTY);
  EXPECT_EQ(indirect({find_device_number("/dev/null"), SG_IO, 0, &exchange.header}), ENODEV);
  EXPECT_EQ(indirect({0xFFFFFFFFFFFFFFFF, SG_IO, 0, &exchange.header}), ENODEV);
  EXPECT_EQ(indirect({device, SG_IO, O_DIRECTORY, &exchange.header}), ENOTDIR);
  EXPECT_EQ(indirect({device, SG_IO, 0, wild}), EFAULT);
  EXPECT_EQ(indirect({device, SCSI_IOCTL_SEND_COMMAND, 0, wild}), EFAULT);
  EXPECT_EQ(exchange.send(node.get(), indirect_request, wild), EFAULT);
  EXPECT_EQ(exchange.send(node.get(), SG_IO, wild), EFAULT);

  const auto spoiled = [&](auto field, auto value) {
    const auto kept = exchange.header.*field;
    exchange.header.*field = value;
    const int error = indirect({device, SG_IO, 0, &exchange.header});
    exchange.header.*field = kept;
    return error;
  };
  EXPECT_EQ(spoiled(&sg_io_hdr::dxferp, wild), EFAULT);
  EXPECT_EQ(spoiled(&sg_io_hdr::cmdp, static_cast<unsigned char *>(wild)), EFAULT);
  EXPECT_EQ(spoiled(&sg_io_hdr::dxfer_len, 128u * 1024), ENOMEM);
  EXPECT_EQ(indirect({device, SG_IO, 0, &exchange.header}), 0);
}

TEST_F(Control, AStuckDiskHoldsUpItsOwnCallersAlone) {
  const ControlService service;
  std::vector<KernelDisk> disks = debug_disks();
  disks.push_back(two_paths().at(0));
  disks.push_back(network);
  target.stick();
  std::atomic<bool> over = false;
  std::array<std::atomic<int>, 4> done{};
  std::atomic<int> failed = 0;
  std::vector<std::thread> callers;
  for (std::size_t i = 0; i < 64; ++i) {
    callers.emplace_back([&, i] {
      do {
        if (inquiry(disks.at(i % 4).path()) != 0) ++failed;
        ++done[i % 4];
      } while (!over);
    });
  }
  const auto start = steady_clock::now();
  constexpr int many = 100;
  EXPECT_TRUE(soon([&done] { return done[0] > many && done[1] > many && done[2] > many; }));
  const auto time = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
  EXPECT_EQ(done[3], 0);
  over = true;
  target.answer();
  for (std::thread &caller : callers)
    caller.join();
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(done[3], 16) << "each of the stuck callers got its answer";
  std::cout << "measured: 64 callers on 4 disks, one stuck: the others answered " << many
            << " times each within " << time.count() << " ms\n";
}

TEST_F(Control, PastTheLimitItSaysBusy) {
  const ControlService service("--max-requests=2");
  target.stick();
  Stuck first(network);
  Stuck second(network);
  EXPECT_EQ(inquiry(debug.path()), EBUSY);
  target.answer();
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(second.wait(), 0);
  EXPECT_EQ(inquiry(debug.path()), 0);
}

TEST_F(Control, WhatIsInFlightIsFinishedAtTheEnd) {
  ControlService service;
  target.stick();
  Stuck stuck(network);
  service.send(SIGHUP);
  EXPECT_TRUE(soon([this] { return inquiry(debug.path()) == -ENODEV; }));
  target.answer();
  EXPECT_EQ(stuck.wait(), 0);
  EXPECT_EQ(service.stop(0), 0);
  EXPECT_FALSE(std::filesystem::exists("/dev/kz"));
}

TEST_F(Control, KilledInFlightItLeavesCallersWithAnError) {
  const auto open_here = [] {
    const std::filesystem::directory_iterator list("/proc/self/fd");
    return std::distance(begin(list), end(list));
  };
  const auto before = open_here();
  {
    ControlService service;
    target.stick();
    Stuck stuck(network);
    service.send(SIGKILL);
    target.answer();  // the service's thread is in the kernel until then
    EXPECT_EQ(service.stop(SIGKILL), -SIGKILL);
    const int result = stuck.wait();
    EXPECT_TRUE(result == ECONNABORTED || result == ENOTCONN) << result;
  }
  EXPECT_EQ(open_here(), before);
  EXPECT_TRUE(soon([this] { return inquiry(debug.path()) == -ENODEV; }));
  odh path = debug.path();
  EXPECT_EQ(do_tur(&path), -ENODEV);
  EXPECT_EQ(do_diskio(&path, 0, 1, nullptr, KZDDL_DISKIO_PROBE), -1);
  EXPECT_EQ(names(block_names).size(), 4u) << "left behind";

  const ControlService next;
  EXPECT_EQ(inquiry(path), 0);
  EXPECT_EQ(names(block_names).size(), 4u);
}

TEST_F(Control, MalformedRequestsHarmNobody) {
  const ControlService service;
  EXPECT_EQ(inquiry(debug.path()), 0);
  std::atomic<bool> over = false;
  std::atomic<int> good = 0;
  std::atomic<int> spoiled = 0;
  std::thread others([&] {
    for (; !over; ++good)
      if (inquiry(debug.path()) != 0) ++spoiled;
  });

  constexpr std::size_t arena_size = 1024 * 1024;
  constexpr std::size_t targets = 16 * 1024;  // where good pointers lead
  auto *const arena = static_cast<unsigned char *>(
      mmap(nullptr, arena_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(arena, MAP_FAILED);
  kzddl::Descriptor node;
  ASSERT_TRUE(node.open(control_node, O_RDWR));
  std::mt19937 random(7);
  const auto one_in = [&random](unsigned n) { return random() % n == 0; };
  const auto pointer = [&]() -> void * {
    const std::uintptr_t wild[] = {0,
                                   1,
                                   4096,
                                   static_cast<std::uintptr_t>(-4096),
                                   static_cast<std::uintptr_t>(0xFFFF888000000000),
                                   reinterpret_cast<std::uintptr_t>(arena) + arena_size - 8,
                                   static_cast<std::uintptr_t>(random())};
    if (one_in(3)) return reinterpret_cast<void *>(wild[random() % std::size(wild)]);
    return arena + arena_size / 2 + random() % targets;
  };
  const std::uint32_t lengths[] = {0,    1,      36,     255,        4096,
                                   4097, 126976, 131072, 0x7FFFFFFF, 0xFFFFFFFF};
  std::map<int, int> outcomes;
  for (int i = 0; i < 4000; ++i) {
    for (std::size_t at = 0; at < 512; at += 4) {
      const std::uint32_t word = random();
      std::memcpy(arena + at, &word, sizeof word);
    }
    // What is taken for a CDB there changes nothing: INQUIRY.
    std::memset(arena + arena_size / 2, 0x12, targets);
    auto *header = reinterpret_cast<sg_io_hdr *>(arena);
    auto *record = reinterpret_cast<Record *>(arena + 256);
    header->flags &= ~4u;
    header->timeout = 1000;
    if (!one_in(8)) header->interface_id = 'S';
    if (!one_in(8)) header->iovec_count = 0;
    if (!one_in(4)) header->cmd_len = 6;
    header->dxfer_len = lengths[random() % std::size(lengths)];
    header->dxfer_direction = one_in(8) ? header->dxfer_direction : -static_cast<int>(random() % 5);
    header->cmdp = static_cast<unsigned char *>(pointer());
    header->sbp = static_cast<unsigned char *>(pointer());
    header->dxferp = one_in(4) ? pointer() : record;
    if (!one_in(4)) record->device = debug.path().dev;
    record->open_flags =
        one_in(2) ? O_RDWR : record->open_flags & ~static_cast<unsigned>(O_NONBLOCK);
    record->request = one_in(4) ? record->request : one_in(3) ? SCSI_IOCTL_SEND_COMMAND : SG_IO;
    record->argument = one_in(3) ? pointer() : header;
    const unsigned request = one_in(8) ? random() : one_in(2) ? SG_IO : indirect_request;
    void *const argument = one_in(8)          ? pointer()
                           : request == SG_IO ? static_cast<void *>(header)
                                              : static_cast<void *>(record);
    ++outcomes[ioctl(node.get(), request, argument) == -1 ? errno : 0];
  }
  munmap(arena, arena_size);
  over = true;
  others.join();
  EXPECT_EQ(spoiled, 0);
  EXPECT_GT(good, 50);
  EXPECT_TRUE(soon([&service] { return service.descriptors() < 16; }));
  for (const int expected : {0, EFAULT, EINVAL, ENODEV, ENOMEM, ENOTTY})
    EXPECT_GT(outcomes[expected], 10) << strerror(expected);
  std::cout << "measured: 4000 malformed requests beside " << good << " good ones\n";
}

TEST_F(Control, ManyRequestsLeaveNothingBehind) {
  const ControlService service;
  const auto count = static_cast<int>(setting("KZTEST_REQUESTS", 1000));
  const odh path = debug.path();
  const auto time_of = [&](const char *version, int requests) {
    kzscsi_set_version(version);
    const auto start = steady_clock::now();
    for (int i = 0; i < requests; ++i)
      EXPECT_EQ(inquiry(path), 0);
    return std::chrono::duration<double, std::micro>(steady_clock::now() - start).count() /
           requests;
  };
  time_of("35", 200);
  long before = 0;
  long after = 0;
  double through = 0;
  // A huge page may come to a thread's stack or heap at any time; what leaks comes every time.
  for (int round = 0; round < 3 && (round == 0 || after >= before + 256); ++round) {
    before = service.memory();
    through = time_of("35", count);
    after = service.memory();
  }
  const double direct = time_of("32", std::min(count, 2000));
  EXPECT_LT(after, before + 256);
  EXPECT_LE(service.threads(), 8);
  std::cout << "measured: INQUIRY " << static_cast<int>(through) << " us through the service, "
            << static_cast<int>(direct) << " us direct; " << before << " KiB of memory before, "
            << after << " after " << count << " requests\n";
}

TEST_F(Control, TheToolFindsUnitsByTheirNames) {
  const ControlService service;
  const ToolRun tool = run_tool({"discover"});
  EXPECT_EQ(tool.status, 0) << tool.err;
  for (const auto &[name, node] : names(raw_names))
    EXPECT_NE(tool.out.find(std::string(raw_names) + "/" + name), std::string::npos) << name;
  std::cout << tool.out;
}

}  // namespace
}  // namespace kzddl_test
