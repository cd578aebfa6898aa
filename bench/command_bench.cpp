// What the library adds to a command: against the same calls and allocations written by hand,
// on a platform that answers at once.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

#include "base/driver.h"
#include "bench/compare.h"
#include "bench/instant_platform.h"
#include "kzddl/kzddl.h"

namespace {

constexpr char direct[] = "32";
constexpr char indirect[] = "35";

odh *disk() {
  static odh path = [] {
    odh made{};
    std::strcpy(made.devname, bench::instant_node);
    made.dev = made.blkdev = 0x800;
    return made;
  }();
  return &path;
}

void check(bool holds) {
  if (!holds) std::abort();
}

/// What the control node takes.
struct Record {
  std::uint32_t lo, hi, command, oflags;
  void *argument;
};

int open_node(bool is_direct, int flags) {
  return is_direct ? open(bench::instant_node, flags) : open(kzddl::control_node, O_RDWR);
}

/// Reads `size` bytes by SG_IO; the caller frees them.
unsigned char *read_by_hand(bool is_direct, std::span<const std::uint8_t> cdb, unsigned size) {
  const int node = open_node(is_direct, O_RDONLY);
  if (node < 0) return nullptr;
  auto *data = static_cast<unsigned char *>(std::calloc(1, size));
  unsigned char sense[32]{};
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.dxfer_direction = SG_DXFER_FROM_DEV;
  header.cmd_len = static_cast<unsigned char>(cdb.size());
  header.mx_sb_len = sizeof sense;
  header.dxfer_len = size;
  header.dxferp = data;
  header.cmdp = const_cast<unsigned char *>(cdb.data());
  header.sbp = sense;
  header.timeout = 20000;
  Record record{0x800, 0, SG_IO, 0, data};
  if (!is_direct) header.dxferp = &record;
  const bool failed = data == nullptr || ioctl(node, SG_IO, &header) != 0 ||
                      (header.host_status | header.masked_status | header.driver_status) != 0;
  close(node);
  if (!failed) return data;
  std::free(data);
  return nullptr;
}

/// PERSISTENT RESERVE IN by the legacy request: once for the length, once for the data. The
/// control node is opened for each.
void *read_keys_by_hand(bool is_direct) {
  int node = -1;
  std::uint32_t length = 0;
  unsigned char *reply = nullptr;
  for (int pass = 0; pass < 2; ++pass) {
    if (pass == 0 || !is_direct) node = open_node(is_direct, O_RDONLY | O_NONBLOCK);
    if (node < 0) break;
    std::free(reply);
    reply = static_cast<unsigned char *>(std::malloc(58 + length));
    if (reply == nullptr) break;
    std::memset(reply, 0, 58 + length);
    const std::uint32_t size = length + 12;
    std::memcpy(reply + 4, &size, sizeof size);
    reply[8] = 0x5E;
    reply[15] = static_cast<unsigned char>(size >> 8);
    reply[16] = static_cast<unsigned char>(size);
    Record record{0x800, 0, SCSI_IOCTL_SEND_COMMAND, O_NONBLOCK, reply};
    const int result = is_direct ? ioctl(node, SCSI_IOCTL_SEND_COMMAND, reply)
                                 : ioctl(node, kzddl::indirect_request, &record);
    if (pass == 1 || !is_direct) close(node);
    if (result != 0) break;
    std::memcpy(&length, reply + 12, sizeof length);
    length = __builtin_bswap32(length) & 0x3FFF;
  }
  void *keys = std::malloc(length + 12);
  if (keys != nullptr && reply != nullptr) std::memcpy(keys, reply + 8, length + 8);
  std::free(reply);
  return keys;
}

struct Command {
  const char *name;
  void *(*ours)();
  void *(*by_hand)(bool is_direct);
};

template <int (*Read)(odh *, int *, unsigned char **)>
void *ours() {
  int length = 0;
  unsigned char *data = nullptr;
  check(Read(disk(), &length, &data) == 0);
  return data;
}

constexpr std::uint8_t inquiry_cdb[] = {0x12, 0, 0, 0, 255, 0};
constexpr std::uint8_t capacity_cdb[] = {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0};
constexpr std::uint8_t rtpg_cdb[] = {0xA3, 0x0A, 0, 0, 0, 0, 0, 0, 0, 255, 0, 0};

const Command commands[] = {
    {"inquiry", ours<[](odh *path, int *length, unsigned char **data) {
       return do_inquiry(path, 0, 0, O_RDONLY, length, data);
     }>,
     [](bool is_direct) -> void * { return read_by_hand(is_direct, inquiry_cdb, 255); }},
    {"read_capacity", ours<[](odh *path, int *length, unsigned char **data) {
       return do_read_capacity(path, 0, 0, 0, length, data);
     }>,
     [](bool is_direct) -> void * { return read_by_hand(is_direct, capacity_cdb, 8); }},
    {"rtpg",
     ours<[](odh *path, int * /*length*/, unsigned char **data) { return do_rtpg(path, data); }>,
     [](bool is_direct) -> void * { return read_by_hand(is_direct, rtpg_cdb, 255); }},
    {"persistent_reserve_in",
     []() -> void * {
       pgr_in_data *keys = nullptr;
       check(do_pgr_in(disk(), 0, &keys) == PGR_OK);
       return keys;
     },
     read_keys_by_hand},
};

void run_ours(benchmark::State &state, const Command &command, const char *version) {
  kzscsi_set_version(version);
  for (auto _ : state) {
    void *data = command.ours();
    benchmark::DoNotOptimize(data);
    std::free(data);
  }
  kzscsi_set_version(nullptr);
}

void run_by_hand(benchmark::State &state, const Command &command, bool is_direct) {
  for (auto _ : state) {
    void *data = command.by_hand(is_direct);
    check(data != nullptr);
    benchmark::DoNotOptimize(data);
    std::free(data);
  }
}

}  // namespace

void bench::register_commands(std::vector<Comparison> &comparisons) {
  for (const Command &command : commands) {
    for (const char *version : {direct, indirect}) {
      const bool is_direct = version == direct;
      const std::string job = std::string(command.name) + (is_direct ? "/direct" : "/indirect");
      const auto add = [](const std::string &name, auto function) {
        benchmark::RegisterBenchmark(name.c_str(), function)
            ->Repetitions(5)
            ->ReportAggregatesOnly()
            ->MinTime(0.1);
      };
      add(job + "/kzddl", [&command, version](auto &state) { run_ours(state, command, version); });
      add(job + "/by_hand",
          [&command, is_direct](auto &state) { run_by_hand(state, command, is_direct); });
      comparisons.push_back(
          {job, job + "/kzddl", job + "/by_hand", 1.15, Comparison::Sense::at_most});
    }
  }
}
