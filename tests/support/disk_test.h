// A host with one disk behind one node, and every way a command can travel to it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "base/memory.h"
#include "kzddl/kzddl.h"
#include "sim/disk.h"
#include "sim/host.h"

namespace kzddl_test {

using sim::Bytes;
using sim::Fault;
using sim::Reply;
using sim::Request;
using sim::Sense;

/// A way to the device: the route, and the form in which the request travels.
struct Way {
  const char *name;
  const char *version;  ///< scsi_version
  const char *machine;  ///< what uname says
  bool ia64 = false;
  unsigned long control_request;  ///< what the control node gets; 0: the node is opened

  bool direct() const { return control_request == 0; }
};

inline constexpr Way direct{"direct", "32", "x86_64", false, 0};
inline constexpr Way indirect_64{"indirect64", "35", "x86_64", false, SG_IO};
inline constexpr Way indirect_32{"indirect32", "35", "i686", false, sim::indirect_request};
inline constexpr Way legacy_direct{"legacyDirect", "32", "ia64", true, 0};
inline constexpr Way legacy_indirect{"legacyIndirect", "35", "ia64", true, sim::indirect_request};

inline void PrintTo(const Way &way, std::ostream *out) { *out << way.name; }

inline std::string way_name(const testing::TestParamInfo<Way> &info) { return info.param.name; }

/// A device that answers as a function says.
struct Answering : sim::Device {
  explicit Answering(std::function<Reply(const sim::Command &)> function)
      : answer(std::move(function)) {}
  Reply execute(const sim::Command &command, const sim::Port & /*port*/) override {
    return answer(command);
  }
  std::function<Reply(const sim::Command &)> answer;
};

class DiskTest : public testing::Test {
 protected:
  static constexpr char node[] = "/dev/sdx";
  static constexpr dev_t number = 0x0000'1234'0000'5678;  // both words are used

  DiskTest() {
    host.add_control_node();
    host.set_machine("x86_64");
    host.set_file("/proc/cpuinfo", "arch\t: none\n");
    use_disk({.serial = "SN-1", .naa = {0x60, 0x0A, 0x0B, 0x80, 1, 2, 3, 4}});
    std::strcpy(path.devname, node);
    path.dev = path.blkdev = number;
  }

  ~DiskTest() override { EXPECT_EQ(host.open_descriptors(), 0) << "a node was left open"; }

  void use_device(std::shared_ptr<sim::Device> device) {
    host.add({.name = node, .number = number, .device = std::move(device)});
  }
  void use_disk(sim::DiskSpec spec) { use_device(std::make_shared<sim::Disk>(std::move(spec))); }

  /// Before the first command: the probes keep their first answer.
  void go(const Way &way) {
    kzscsi_set_version(way.version);
    host.set_machine(way.machine);
    if (way.ia64) host.set_file("/proc/cpuinfo", "processor  : 0\narch       : IA-64\n");
  }

  void answer(const Reply &reply, int times = -1) {
    if (reply.error != 0) return host.inject(node, {.times = times, .error = reply.error});
    host.inject(node, {.times = times, .reply = reply});
  }
  void answer(const Sense &sense) { answer(Reply::check_condition(sense)); }
  void fail_ioctl(int error) { host.inject(node, {.times = -1, .error = error}); }

  Request only_request() {
    const auto requests = host.take_requests();
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? Request{} : requests.front();
  }

  sim::Host &host = sim::Host::instance();
  odh path{};
};

/// The same, by every way in turn.
class WayTest : public DiskTest, public testing::WithParamInterface<Way> {
 protected:
  WayTest() { go(GetParam()); }

  void expect_way(const Request &request, unsigned oflags) const {
    EXPECT_EQ(request.through_control_node, !GetParam().direct());
    EXPECT_EQ(request.control_request, GetParam().control_request);
    EXPECT_EQ(request.form == Request::Form::legacy, GetParam().ia64);
    EXPECT_EQ(request.oflags, oflags);
    EXPECT_EQ(request.node, node);
  }
};

/// The SG_IO header fields that a family sets; all others are zero.
inline void expect_header(const Request &request, int direction, unsigned length,
                          unsigned timeout = 20000) {
  const sg_io_hdr &header = request.header;
  EXPECT_EQ(header.interface_id, 'S');
  EXPECT_EQ(header.dxfer_direction, direction);
  EXPECT_EQ(header.dxfer_len, length);
  EXPECT_EQ(header.mx_sb_len, 32);
  EXPECT_EQ(header.timeout, timeout);
  EXPECT_EQ(header.iovec_count, 0);
  EXPECT_EQ(header.flags, 0u);
  EXPECT_EQ(header.pack_id, 0);
}

/// What `work` writes to standard output.
template <class Work>
std::string printed(Work work) {
  testing::internal::CaptureStdout();
  work();
  return testing::internal::GetCapturedStdout();
}

/// A command of each kind; each hands over a block when it succeeds.
struct Reader {
  const char *name;
  int (*run)(odh *path, int *length, unsigned char **data);
};
inline constexpr Reader readers[] = {
    {"INQUIRY", [](odh *p, int *n, auto **data) { return do_inquiry(p, 1, 0x83, 0, n, data); }},
    {"READ CAPACITY", [](odh *p, int *n, auto **d) { return do_read_capacity(p, 0, 0, 0, n, d); }},
    {"MODE SENSE", [](odh *p, int *n, auto **d) { return do_mode_sense_raw(p, 0, 0, 63, n, d); }},
    {"REPORT TARGET PORT GROUPS", [](odh *p, int *, auto **data) { return do_rtpg(p, data); }},
    {"PERSISTENT RESERVE IN",
     [](odh *p, int *, auto **data) {
       return static_cast<int>(do_pgr_in(p, 0, reinterpret_cast<pgr_in_data **>(data)));
     }},
    {"READ",
     [](odh *p, int *, auto **data) {
       *data = static_cast<unsigned char *>(std::malloc(3 * 512));
       return do_diskio(p, 8, 3, *data, KZDDL_DISKIO_READ);
     }},
};

inline const auto every_way =
    testing::Values(direct, indirect_64, indirect_32, legacy_direct, legacy_indirect);
inline const auto every_sg_way = testing::Values(direct, indirect_64, indirect_32);
inline const auto every_legacy_way = testing::Values(legacy_direct, legacy_indirect);

}  // namespace kzddl_test
