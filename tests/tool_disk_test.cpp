// The tool and the disks' own matters: capacity, mode parameters, geometry, blocks, reservations.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <random>

#include "support/disk_test.h"
#include "support/run_tool.h"
#include "tools/block_io.h"
#include "tools/copy_limits.h"
#include "tools/error.h"
#include "tools/mode_sense.h"
#include "tools/reservations.h"

namespace kzddl_test {
namespace {

using nlohmann::json;

std::string random_bytes(std::size_t size, std::size_t seed) {
  std::mt19937 random(static_cast<unsigned>(seed));
  std::string bytes(size, '\0');
  for (char &byte : bytes)
    byte = static_cast<char>(random());
  return bytes;
}

/// The demonstration array, with blocks that outlast a run.
class ToolDisk : public testing::Test {
 protected:
  ToolDisk() { std::filesystem::create_directories(store_); }
  ~ToolDisk() override { std::filesystem::remove_all(store_); }

  ToolRun run(std::vector<std::string> arguments, std::string_view input = {}) const {
    arguments.insert(arguments.end(), {"--sim", "--sim-store", store_});
    return run_tool(arguments, input);
  }

  std::string file(const std::string &name) const { return store_ + "/" + name; }

  /// What a shell makes of a command in which "kzddl" is the tool on the array: its two outputs,
  /// and the exit status behind them.
  std::string shell(std::string command) const {
    const std::string tool = std::string("ASAN_OPTIONS=verify_asan_link_order=0:$ASAN_OPTIONS ") +
                             KZDDL_TOOL + " --sim --sim-store " + store_;
    command.replace(command.find("kzddl"), 5, tool);
    std::FILE *pipe = popen(("{ " + command + "; echo $?; } 2>&1").c_str(), "r");
    std::string text;
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;)
      text += static_cast<char>(c);
    pclose(pipe);
    return text;
  }

 private:
  const std::string store_ = testing::TempDir() + "tool_disk_" + std::to_string(::getpid());
};

TEST_F(ToolDisk, WhatIsWrittenIsReadBackByEveryWay) {
  const struct {
    const char *written_to, *read_from;
    std::uint64_t lba;
    std::size_t blocks, block_size;
  } cases[] = {
      {"/dev/sda", "/dev/kz/rjox/disk0", 12345, 19531, 512},  // 10 MB, the last chunk is shorter
      {"/dev/kz/jox/disk0", "/dev/sde", 1, 8, 512},
      {"/dev/sdc", "/dev/sdg", 2097151, 1, 4096},
      {"/dev/sdc", "/dev/sdg", 3, 300, 4096},
      {"/dev/sdb", "/dev/sdf", 0xFFFFFFFA, 1030, 512},  // from one side of 32 bits to the other
  };
  const std::string in = file("in"), out = file("out");
  for (const std::string route : {"direct", "indirect"}) {
    const std::string other = route == "direct" ? "indirect" : "direct";
    for (const auto &c : cases) {
      SCOPED_TRACE(route + " " + c.written_to);
      const std::string lba = std::to_string(c.lba), count = std::to_string(c.blocks);
      const std::string blocks = random_bytes(c.blocks * c.block_size, route.size());
      std::ofstream(in) << blocks;
      const ToolRun written = run(
          {"write", c.written_to, "--lba", lba, "--in", in, "--yes", "--json", "--route", route});
      EXPECT_EQ(json::parse(written.out)["blocks"], c.blocks);
      const ToolRun read =
          run({"read", c.read_from, "--lba", lba, "--count", count, "--route", other});
      EXPECT_TRUE(read.out == blocks);
      const ToolRun kept = run({"read", c.read_from, "--lba", lba, "--count", count, "--out", out});
      std::ifstream stream(out);
      EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(stream), {}) == blocks);
      EXPECT_EQ(written.err + read.err + kept.err, "");
    }
  }
}

TEST_F(ToolDisk, StopsWhereTheDataOrTheDeviceEnd) {
  EXPECT_EQ(shell("head -c 1500 /dev/zero | kzddl write /dev/sda --lba 5 --yes"),
            "kzddl: write /dev/sda: stopped at LBA 7, after 2 blocks: standard input ended 476 "
            "bytes into a block\n1\n");
  EXPECT_EQ(shell("head -c 1024 /dev/zero | kzddl write /dev/sda --lba 5 --count 3 --yes"),
            "kzddl: write /dev/sda: stopped at LBA 7, after 2 blocks: standard input ended too "
            "soon\n1\n");
  const std::string read_on = "kzddl read /dev/sda --lba 0 --count 2097152 | head -c 0";
  EXPECT_EQ(shell(read_on), "0\n") << "quiet, as other programs are";
  const std::string told = shell("trap '' PIPE; " + read_on);
  EXPECT_TRUE(told.starts_with("kzddl: read /dev/sda: stopped at LBA ")) << told;
  EXPECT_NE(told.find(" blocks: write standard output: Broken pipe\n"), told.npos) << told;
  // No file has room for the blocks behind 2^63 bytes.
  const auto array = [this](const std::string &blocks) {
    std::ofstream(file("array.json"))
        << json{{"units",
                 {{{"blocks", std::uint64_t{1} << 60},
                   {"file", blocks},
                   {"paths", {{{"node", "/dev/sda"}, {"device", "8:0"}}}}}}}};
    return "--sim=" + file("array.json");
  };
  const ToolRun tool = run_tool(
      {array("blocks"), "read", "/dev/sda", "--lba", "18014398509481980", "--count", "100"});
  EXPECT_EQ(tool.out, std::string(3 * 512, '\0'));
  EXPECT_EQ(tool.err,
            "kzddl: read /dev/sda: stopped at LBA 18014398509481983, after 3 blocks: "
            "CHECK CONDITION, MEDIUM ERROR: UNRECOVERED READ ERROR\n");
  EXPECT_EQ(tool.status, 1);
  const ToolRun no_file = run_tool({array("no/blocks"), "discover"});
  EXPECT_EQ(no_file.err, "simulated host: " + file("array.json") + ": /units/0/file: " +
                             file("no/blocks") + ": No such file or directory\n");
  EXPECT_EQ(no_file.status, 2);
}

TEST_F(ToolDisk, ModePagesComeAsTheyAre) {
  const std::string expected("\x17\0\x10\x08\0\x20\0\0\0\0\x02\0\x0A\x0A\x02\x10\0\0\0\0\0\0\0\0",
                             24);
  EXPECT_EQ(run({"modes", "/dev/sda", "--page", "0a", "--raw"}).out, expected);
  const std::string decoded = run({"modes", "/dev/sda"}).out;
  const std::string hex = run({"modes", "/dev/sda", "--hex"}).out;
  const std::string again = run_tool({"decode", "modes", "-"}, hex).out;
  EXPECT_EQ(decoded.substr(decoded.find('\n')), again.substr(again.find('\n')));
}

// --- faults ---

class ToolBlocks : public WayTest {
 protected:
  std::string failure_of_read(std::size_t blocks) {
    Bytes buffer(blocks * 512, 0xEE);
    const tool::Moved moved = tool::BlockDevice(device_, "read").read(0, buffer);
    EXPECT_EQ(moved.failure.empty(), moved.blocks == blocks);
    return moved.failure;
  }

  tool::Device device_{node};
};
INSTANTIATE_TEST_SUITE_P(, ToolBlocks, every_sg_way, way_name);

TEST_P(ToolBlocks, UnitAttentionsArePassedOver) {
  const Reply attention = Reply::check_condition({0x06, 0x29, 0x00});
  for (int times = 1; times <= 2; ++times) {
    answer(attention, times);
    EXPECT_EQ(failure_of_read(20), "");
  }
  answer(attention, 1);
  EXPECT_FALSE(tool::is_reserved_elsewhere(device_));
  answer(attention, 3);
  EXPECT_THROW(tool::read_capacity(device_), tool::Error);
}

TEST_P(ToolBlocks, LostRequestsLoseNoData) {
  tool::BlockDevice disk(device_, "write");
  Bytes written(300 * 512);
  std::iota(written.begin(), written.end(), std::uint8_t{0});
  Bytes read(written.size(), 0xEE);
  for (const std::uint8_t opcode : {sim::opcode::write_10, sim::opcode::read_10})
    host.inject(node, {.opcode = opcode, .reply = Reply{.host_status = 3}});
  EXPECT_EQ(disk.write(5, written).blocks, 300u);
  EXPECT_EQ(disk.read(5, read).blocks, 300u);
  EXPECT_EQ(read, written);

  const std::pair<Reply, std::string> losses[] = {
      {{.host_status = 1}, "no connection to the device"}, {{}, "0 of 512 bytes moved"}};
  for (const auto &[reply, failure] : losses) {
    // The last of three requests, and its first block.
    host.inject(node, {.opcode = sim::opcode::read_10, .times = 2, .reply = reply, .after = 2});
    const tool::Moved moved = disk.read(0, read);
    EXPECT_EQ(moved.blocks, 256u);
    EXPECT_EQ(moved.failure, failure);
  }
}

TEST_P(ToolBlocks, ReservedByAnotherHost) {
  const auto disk = std::make_shared<sim::Disk>(sim::DiskSpec{});
  use_device(disk);
  // PERSISTENT RESERVE OUT of another host: register (6), reserve (1) with Exclusive Access, or
  // release (2).
  const auto elsewhere = [&disk](std::uint8_t action) {
    const Bytes cdb{sim::opcode::persistent_reserve_out, action, 3, 0, 0, 0, 0, 0, 24, 0};
    Bytes keys(24);
    keys[7] = keys[15] = 1;
    const auto reply = disk->execute({.cdb = cdb, .data_out = keys, .initiator = "elsewhere"}, {});
    EXPECT_EQ(reply.status, sim::status::good);
  };
  elsewhere(6);
  for (const bool reserved : {false, true, false}) {
    elsewhere(reserved ? 1 : 2);
    EXPECT_EQ(tool::is_reserved_elsewhere(device_), reserved);
    EXPECT_EQ(failure_of_read(8), reserved ? "RESERVATION CONFLICT" : "");
  }
}

class ToolWitness : public WayTest {};
INSTANTIATE_TEST_SUITE_P(, ToolWitness, every_way, way_name);

TEST_P(ToolWitness, ADeadPathVouchesForNothing) {
  tool::Device device(node);
  const auto reason = [&device](auto ask) -> std::string {
    try {
      ask(device);
    } catch (const tool::Error &error) {
      return error.reason();
    }
    return "answered";
  };
  const std::string refused = "on IA-64 a request that is lost looks like one that succeeds";
  const std::string dead = GetParam().ia64 ? refused : "timed out";
  const auto change = [](tool::Device &d) { tool::change_reservations(d, {.service_key = 1}); };
  answer(Reply{.host_status = 3});
  EXPECT_EQ(reason(tool::read_reservations), dead);
  EXPECT_EQ(reason(tool::read_copy_limits), dead);
  EXPECT_EQ(reason(tool::is_reserved_elsewhere), dead);
  host.take_requests();
  EXPECT_EQ(reason(change),
            GetParam().ia64 ? refused : dead + "; it may or may not have been carried out");
  EXPECT_EQ(host.take_requests().size(), GetParam().ia64 ? 0u : 1u) << "once is enough";
}

TEST_P(ToolBlocks, CapacitiesThatCannotBeAreRefused) {
  for (const Bytes &reply : {Bytes{0, 0, 0, 9, 0, 0, 0, 0}, Bytes{0, 0, 0, 9, 0, 8, 2, 0}}) {
    host.inject(node,
                {.opcode = sim::opcode::read_capacity_10, .times = 1, .reply = Reply::with(reply)});
    EXPECT_THROW(tool::BlockDevice(device_, "read"), tool::Error);
  }
}

}  // namespace
}  // namespace kzddl_test
