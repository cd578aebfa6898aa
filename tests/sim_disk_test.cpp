// The simulated disk, asked as hosts ask it, through its nodes: sessions written down in
// tests/sessions/scsi, replayed.
//
//   # ...              a comment
//   % {...}            a new disk: its description without paths, on "a" and "b", two paths of
//                      one host through a port and a group each, "c", another host's like "a", and
//                      "sg", an sg node like "a"; "a" and "sg" with the members after "}; "
//   NODE COMMAND = ... what a node is sent, and how that ended: good, with the data that came,
//                      conflict, key/code/qualifier of the sense data, another status, a host
//                      status, or an errno
//
// A command is its CDB, "< DATA" behind it for what is sent with it, or one of the words below;
// "legacy" before a CDB sends it so, for 8 bytes of data.
#include "sim/disk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <scsi/scsi_ioctl.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

#include "base/bytes.h"
#include "base/descriptor.h"
#include "capture/capture.h"
#include "sim/array.h"
#include "sim/host.h"

namespace sim {
namespace {

/// Data as text: hexadecimal, or a byte and how often it comes.
std::string text_of(const Bytes &data) {
  char digits[16];
  if (data.size() > 48 && data == Bytes(data.size(), data[0])) {
    std::snprintf(digits, sizeof digits, " %zu*%02x", data.size(), data[0]);
    return digits;
  }
  std::string text;
  for (std::size_t i = 0; i < data.size(); ++i) {
    std::snprintf(digits, sizeof digits, "%s%02x", i % 4 == 0 ? " " : "", data[i]);
    text += digits;
  }
  return text;
}

Bytes data_of(const std::string &text) {
  const std::size_t times = text.find('*');
  if (times == std::string::npos) return capture::parse_hex(text);
  return Bytes(std::stoul(text), capture::parse_hex(text.substr(times + 1)).at(0));
}

class SimDisk : public testing::TestWithParam<const char *> {
 protected:
  void use(const std::string &line) {
    const std::size_t end = std::min(line.find("; "), line.size());
    const std::string unit = line.substr(0, end);
    const std::string member = end < line.size() ? ", " + line.substr(end + 2) : "";
    const std::string file = testing::TempDir() + "sim_disk_test_" + std::to_string(getpid());
    std::ofstream(file) << R"({"units": [)" << unit.substr(0, unit.rfind('}'))
                        << (unit.find(':') == std::string::npos ? "" : ", ") << R"("paths": [
      {"node": "/dev/a", "device": "8:0", "port": 1, "group": 1)"
                        << member << R"(},
      {"node": "/dev/sg", "device": "21:0", "port": 1, "group": 1, "kind": "character")"
                        << member << R"(},
      {"node": "/dev/b", "device": "8:16", "port": 2, "group": 2},
      {"node": "/dev/c", "device": "8:32", "port": 1, "group": 1, "initiator": "c"}]}]})";
    install_file(Host::instance(), file);
    std::filesystem::remove(file);
  }

  /// Sends a command with data, or expects data of that size; how it ended.
  std::string send(const std::string &node, Bytes cdb, Bytes data, int direction) {
    kzddl::Descriptor fd;
    if (!fd.open(("/dev/" + node).c_str(), O_RDWR)) return strerrorname_np(errno);
    unsigned char sense[32] = {};
    sg_io_hdr header{};
    header.interface_id = 'S';
    header.dxfer_direction = direction;
    header.cmd_len = static_cast<unsigned char>(cdb.size());
    header.mx_sb_len = sizeof sense;
    header.dxfer_len = static_cast<unsigned>(data.size());
    header.dxferp = data.data();
    header.cmdp = cdb.data();
    header.sbp = sense;
    if (ioctl(fd.get(), SG_IO, &header) != 0) return strerrorname_np(errno);
    if (header.host_status != 0) return "host " + std::to_string(header.host_status);
    data.resize(data.size() - static_cast<std::size_t>(header.resid));
    if (header.status == status::reservation_conflict) return "conflict";
    if (header.status == 0) {
      return "good" + (direction == SG_DXFER_FROM_DEV ? text_of(data) : "");
    }
    if (header.status != status::check_condition) return "status " + std::to_string(header.status);
    const bool fixed = sense[0] == 0x70;
    char text[32];
    std::snprintf(text, sizeof text, "%s%x/%x/%x", fixed ? "" : "descriptor ", sense[fixed ? 2 : 1],
                  sense[fixed ? 12 : 2], sense[fixed ? 13 : 3]);
    return text;
  }

  std::string send_legacy(const std::string &node, const Bytes &cdb) {
    kzddl::Descriptor fd;
    if (!fd.open(("/dev/" + node).c_str(), O_RDWR)) return strerrorname_np(errno);
    Bytes buffer(24);
    buffer[4] = 8;
    std::ranges::copy(cdb, &buffer[8]);
    const int result = ioctl(fd.get(), SCSI_IOCTL_SEND_COMMAND, buffer.data());
    if (result != 0)
      return result < 0 ? strerrorname_np(errno) : "status " + std::to_string(result);
    return "good" + text_of({&buffer[8], &buffer[16]});
  }

  std::string run(const std::string &line) {
    std::istringstream stream(line);
    std::string node, word;
    stream >> node >> word;
    const auto read = [&](const char *cdb) {
      return send(node, capture::parse_hex(cdb), Bytes(512), SG_DXFER_FROM_DEV);
    };
    const std::pair<const char *, const char *> words[] = {
        {"read", "28 00 00 00 00 00 00 00 01 00"},
        {"modes", "1a 00 3f 00 ff 00"},
        {"groups", "a3 0a 00 00 00 00 00 00 00 ff 00 00"},
        {"keys", "5e 00 00 00 00 00 00 00 ff 00"},
        {"reservation", "5e 01 00 00 00 00 00 00 ff 00"}};
    for (const auto &[name, cdb] : words)
      if (word == name) return read(cdb);
    if (word == "ready") return send(node, Bytes(6), {}, SG_DXFER_NONE);
    if (word == "reserve") {  // PERSISTENT RESERVE OUT
      unsigned action = 0, type = 0, flags = 0;
      std::uint64_t key = 0, other_key = 0;
      stream >> action >> key >> other_key >> type >> flags;
      Bytes list(24);
      kzddl::store_be64(&list[0], key);
      kzddl::store_be64(&list[8], other_key);
      list[20] = static_cast<std::uint8_t>(flags);
      Bytes cdb{0x5F, 0, 0, 0, 0, 0, 0, 0, 24, 0};
      cdb[1] = static_cast<std::uint8_t>(action);
      cdb[2] = static_cast<std::uint8_t>(type);
      return send(node, cdb, list, SG_DXFER_TO_DEV);
    }
    const std::string command = line.substr(node.size() + 1);
    if (word == "legacy") return send_legacy(node, capture::parse_hex(command.substr(7)));
    const std::size_t out = command.find(" < ");
    if (out == std::string::npos) return read(command.c_str());
    return send(node, capture::parse_hex(command.substr(0, out)), data_of(command.substr(out + 3)),
                SG_DXFER_TO_DEV);
  }
};

TEST_P(SimDisk, AnswersAsWrittenDown) {
  std::ifstream session(std::string(KZDDL_TEST_DATA "/../sessions/scsi/") + GetParam() + ".txt");
  int commands = 0;
  for (std::string line; std::getline(session, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '%') {
      use(line.substr(2));
      continue;
    }
    const std::string command = line.substr(0, line.find(" = "));
    const std::string actual = command + " = " + run(command);
    EXPECT_EQ(actual, line);
    ++commands;
  }
  EXPECT_GT(commands, 0);
}

INSTANTIATE_TEST_SUITE_P(, SimDisk,
                         testing::Values("blocks", "modes", "reservations", "groups", "inquiry",
                                         "faults"),
                         [](const auto &info) { return std::string(info.param); });

using SimDiskThreads = SimDisk;

TEST_F(SimDiskThreads, ACommandIsCarriedOutWhole) {
  use("{}");
  const auto work = [this](const char *node, std::uint8_t value) {
    for (int i = 0; i < 200; ++i) {
      run(node + (" 2a 00 00 00 00 00 00 00 08 00 < 4096*0" + std::to_string(value)));
      const std::string said =
          send(node, {0x28, 0, 0, 0, 0, 0, 0, 0, 8, 0}, Bytes(4096), SG_DXFER_FROM_DEV);
      EXPECT_TRUE(said == "good 4096*01" || said == "good 4096*02") << said;
    }
  };
  std::jthread one(work, "a", 1);
  std::jthread two(work, "b", 2);
}

TEST_F(SimDiskThreads, ADelayHoldsUpNoOtherPath) {
  use(R"({}; "delay_ms": 1000)");
  auto slow = std::async(std::launch::async, [this] { return run("a ready"); });
  EXPECT_EQ(slow.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
  EXPECT_EQ(run("b ready"), "good");
  EXPECT_EQ(slow.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
  EXPECT_EQ(slow.get(), "good");
}

}  // namespace
}  // namespace sim
