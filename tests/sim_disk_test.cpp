// The simulated disk: its blocks, mode pages and state, asked as a host asks, through its nodes.
#include "sim/disk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <thread>

#include "base/bytes.h"
#include "base/descriptor.h"
#include "capture/capture.h"
#include "sim/array.h"
#include "sim/host.h"

namespace sim {

void PrintTo(const Sense &sense, std::ostream *out) {
  *out << std::hex << +sense.key << "/" << +sense.asc << "/" << +sense.ascq;
}

namespace {

using capture::parse_hex;

/// How a command ended: status, sense data, what came.
struct Answer {
  int status = 0;
  Bytes sense_data{};
  Bytes data{};

  Sense sense() const {
    if (sense_data.size() < 14) return {};
    return {sense_data[2], sense_data[12], sense_data[13]};
  }
};

/// Two paths of one initiator and one of another, to a disk.
class SimDisk : public testing::Test {
 protected:
  static constexpr char a[] = "/dev/a";
  static constexpr char b[] = "/dev/b";
  static constexpr char other_host[] = "/dev/c";

  SimDisk() { use({}); }

  void use(DiskSpec spec) {
    disk = std::make_shared<Disk>(std::move(spec));
    add(a, 1, 1);
    add(b, 2, 2);
    add(other_host, 1, 1, "host1");
  }

  void add(const char *node, std::uint16_t port, std::uint16_t group,
           const char *initiator = default_initiator) {
    host.add({.name = node, .device = disk, .port = {port, group}, .initiator = initiator});
  }

  /// Sends a command that expects data.
  Answer send(const char *node, std::string_view cdb, std::size_t expected = 0) {
    Bytes data(expected);
    Answer answer =
        send(node, parse_hex(cdb), data, expected == 0 ? SG_DXFER_NONE : SG_DXFER_FROM_DEV);
    answer.data = std::move(data);
    return answer;
  }

  /// Sends a command with data.
  Answer send_out(const char *node, std::string_view cdb, Bytes data) {
    return send(node, parse_hex(cdb), data, SG_DXFER_TO_DEV);
  }

  Sense refusal(const char *node, std::string_view cdb, std::size_t expected = 255) {
    return send(node, cdb, expected).sense();
  }

  Host &host = Host::instance();
  std::shared_ptr<Disk> disk;

 private:
  Answer send(const char *node, Bytes cdb, Bytes &data, int direction) {
    kzddl::Descriptor fd;
    EXPECT_TRUE(fd.open(node, O_RDWR));
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
    EXPECT_EQ(ioctl(fd.get(), SG_IO, &header), 0);
    data.resize(data.size() - static_cast<std::size_t>(header.resid));
    return {.status = header.status, .sense_data = Bytes(sense, sense + header.sb_len_wr)};
  }
};

constexpr Sense none{};

// --- blocks ---

TEST_F(SimDisk, BlocksReadAsTheyWereWrittenByAnyPath) {
  Bytes data(2 * 512);
  for (std::size_t i = 0; i < data.size(); ++i)
    data[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
  // Across the border of two chunks, and at the very end.
  for (const std::string_view lba : {"00 00 00 7f", "00 1f ff fe"}) {
    const std::string at = std::string(lba) + " 00 00 02 00";
    EXPECT_EQ(send_out(a, "2a 00 " + at, data).status, 0);
    EXPECT_EQ(send(b, "28 00 " + at, 1024).data, data);
    EXPECT_EQ(send(a, "88 00 00 00 00 00 " + std::string(lba) + " 00 00 00 02 00 00", 1024).data,
              data);
  }
  EXPECT_EQ(send(a, "28 00 00 00 00 80 00 00 01 00", 512).data, Bytes(&data[512], &data[1024]));
  EXPECT_EQ(send(a, "28 00 00 00 00 7e 00 00 01 00", 512).data, Bytes(512)) << "never written";
  EXPECT_EQ(send_out(a, "8a 00 00 00 00 00 00 00 00 7f 00 00 00 01 00 00", Bytes(512, 9)).status,
            0);
  EXPECT_EQ(send(a, "28 00 00 00 00 7f 00 00 01 00", 512).data, Bytes(512, 9));
}

TEST_F(SimDisk, TransfersThatDoNotFitAreRefusedWhole) {
  EXPECT_EQ(refusal(a, "28 00 00 20 00 00 00 00 01 00"), lba_out_of_range);
  EXPECT_EQ(refusal(a, "28 00 00 1f ff ff 00 00 02 00"), lba_out_of_range);
  EXPECT_EQ(refusal(a, "88 00 ff ff ff ff ff ff ff ff 00 00 00 02 00 00"), lba_out_of_range);
  EXPECT_EQ(refusal(a, "88 00 00 00 00 00 00 00 00 00 00 1f ff ff 00 00"), invalid_field_in_cdb)
      << "a gigabyte in one command";
  for (const std::size_t size : {1, 511, 513, 1024}) {
    EXPECT_EQ(send_out(a, "2a 00 00 00 00 00 00 00 01 00", Bytes(size, 1)).sense(),
              invalid_field_in_cdb)
        << size;
  }
  EXPECT_EQ(send(a, "28 00 00 00 00 00 00 00 01 00", 512).data, Bytes(512)) << "still unwritten";
  EXPECT_EQ(send(a, "28 00 00 00 00 00 00 00 01 00", 100).data.size(), 100u) << "a short buffer";
}

TEST_F(SimDisk, ShortCommandsAreFilledWithZeros) {
  EXPECT_EQ(send(a, "88", 512).status, 0);
  EXPECT_EQ(send(a, "12", 96).data.size(), 0u);
}

TEST_F(SimDisk, Capacity) {
  EXPECT_EQ(send(a, "25 00 00 00 00 00 00 00 00 00", 8).data, parse_hex("001fffff 00000200"));
  EXPECT_EQ(refusal(a, "25 00 00 00 00 01 00 00 00 00"), invalid_field_in_cdb);
  const struct {
    std::uint64_t blocks;
    const char *last_10;
    const char *last_16;
  } cases[] = {
      {0xFFFFFFFF, "fffffffe 00001000", "00000000 fffffffe 00001000"},
      {0x100000000, "ffffffff 00001000", "00000000 ffffffff 00001000"},
      {0x200000000, "ffffffff 00001000", "00000001 ffffffff 00001000"},
  };
  for (const auto &[blocks, last_10, last_16] : cases) {
    use({.blocks = blocks, .block_size = 4096});
    EXPECT_EQ(send(a, "25 00 00 00 00 00 00 00 00 00", 8).data, parse_hex(last_10));
    EXPECT_EQ(send(a, "9e 10 00 00 00 00 00 00 00 00 00 00 00 0c 00 00", 32).data,
              parse_hex(last_16));
  }
  const std::string far = " 00 00 00 00 01 ff ff ff ff 00 00 00 01 00 00";
  EXPECT_EQ(send_out(a, "8a" + far, Bytes(4096, 5)).status, 0);
  EXPECT_EQ(send(a, "88" + far, 4096).data, Bytes(4096, 5));
}

TEST_F(SimDisk, NotReady) {
  constexpr Sense format_in_progress{0x02, 0x04, 0x04};
  use({.not_ready = format_in_progress});
  for (const char *cdb :
       {"00 00 00 00 00 00", "28 00 00 00 00 00 00 00 01 00", "25 00 00 00 00 00 00 00 00 00"}) {
    EXPECT_EQ(refusal(a, cdb), format_in_progress) << cdb;
  }
  EXPECT_EQ(send(a, "12 00 00 00 60 00", 96).status, 0);
  const Bytes sense = send(a, "03 00 00 00 ff 00", 255).data;
  EXPECT_EQ(sense, format_in_progress.fixed());
}

// --- mode pages ---

/// The pages of a MODE SENSE(6) answer.
Bytes pages_of(const Answer &answer) {
  const Bytes &data = answer.data;
  if (data.size() < 4) return {};
  EXPECT_EQ(data[0], data.size() - 1);
  return {data.begin() + 4 + data[3], data.end()};
}

TEST_F(SimDisk, ModePages) {
  EXPECT_EQ(send(a, "1a 00 03 00 ff 00", 255).data,
            parse_hex("23 00 10 08  00 20 00 00 00 00 02 00"
                      "03 16 00 00 00 00 00 00 00 00 00 3f 02 00 00 00 00 00 00 00 40 00 00 00"));
  EXPECT_EQ(send(a, "1a 08 04 00 ff 00", 255).data,
            parse_hex("1b 00 10 00"
                      "04 16 00 00 82 ff 00 00 00 00 00 00 00 00 00 00 00 00 00 00 1c 20 00 00"));
  EXPECT_EQ(pages_of(send(a, "1a 00 3f 00 ff 00", 255)).size(), 24u + 24 + 20 + 12 + 38);
  EXPECT_EQ(send(a, "1a 00 3f 00 06 00", 255).data, parse_hex("81 00 10 08 00 20"))
      << "cut, with the whole length";
  const Bytes limits = pages_of(send(a, "1a 00 4e 00 ff 00", 255));
  EXPECT_EQ(limits, parse_hex("0e 24 00 01 00 02 00 01 00 00 04 00 10 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00 09 09 09 00 00 00 00 02 02 e4"));
  EXPECT_EQ(limits, pages_of(send(a, "1a 00 0e 00 ff 00", 255)));
  for (const char *cdb : {"1a 00 00 00 ff 00", "1a 00 01 00 ff 00", "1a 00 08 01 ff 00"})
    EXPECT_EQ(refusal(a, cdb), invalid_field_in_cdb) << cdb;
  EXPECT_EQ(refusal(a, "1a 00 c8 00 ff 00"), saving_parameters_not_supported);
}

TEST_F(SimDisk, ModePagesAsSpecified) {
  use({.blocks = 0x1'0000'0000,
       .geometry = Geometry{.sectors = 32, .heads = 16, .cylinders = 622, .rotation_rate = 15000},
       .answers_page_0 = true,
       .copy = CopyParameters::none});
  EXPECT_EQ(send(a, "1a 00 00 00 ff 00", 255).data,
            parse_hex("0d 00 10 08 ff ff ff ff 00 00 02 00 00 00"));
  const Bytes geometry = pages_of(send(a, "1a 00 04 00 ff 00", 255));
  EXPECT_EQ(Bytes(geometry.begin(), geometry.begin() + 6), parse_hex("04 16 00 02 6e 10"));
  EXPECT_EQ(refusal(a, "1a 00 0e 00 ff 00"), invalid_field_in_cdb);
  const Bytes all = pages_of(send(a, "1a 00 3f 00 ff 00", 255));
  ASSERT_EQ(all.size(), 24u + 24 + 20 + 12 + 2);
  EXPECT_EQ(all[80], 0) << "page 0 is the last";
  use({.geometry = std::nullopt});
  EXPECT_EQ(refusal(a, "1a 00 03 00 ff 00"), invalid_field_in_cdb);
  EXPECT_EQ(refusal(a, "1a 00 04 00 ff 00"), invalid_field_in_cdb);
}

constexpr char control_list[] = "00 00 00 00  0a 0a 06 10 08 00 00 00 00 00 00 00";

TEST_F(SimDisk, ModeSelectTakesEffect) {
  EXPECT_EQ(send_out(a, "15 10 00 00 18 00",
                     parse_hex("00 00 00 00 08 12 04 00 00 00 00 00"
                               "00 00 00 00 00 00 00 00 00 00 00 00"))
                .status,
            0);
  EXPECT_EQ(refusal(b, "00 00 00 00 00 00"), mode_parameters_changed);
  EXPECT_EQ(refusal(other_host, "00 00 00 00 00 00"), mode_parameters_changed);
  EXPECT_EQ(refusal(a, "00 00 00 00 00 00"), none) << "who changed them is not told";
  EXPECT_EQ(pages_of(send(b, "1a 00 08 00 ff 00", 255))[2], 0x04);
  EXPECT_EQ(pages_of(send(b, "1a 00 48 00 ff 00", 255))[2], 0x05) << "changeable";
  EXPECT_EQ(pages_of(send(b, "1a 00 88 00 ff 00", 255))[2], 0x00) << "default";

  // D_SENSE and SWP: sense data in the other format, and a medium that cannot be written.
  EXPECT_EQ(send_out(a, "15 10 00 00 10 00", parse_hex(control_list)).status, 0);
  EXPECT_EQ(send(a, "ff 00 00 00 00 00").sense_data, parse_hex("72 05 20 00 00 00 00 00"));
  EXPECT_EQ(send(a, "1a 08 0a 00 ff 00", 255).data[2], 0x90);
  EXPECT_EQ(send_out(a, "2a 00 00 00 00 00 00 00 01 00", Bytes(512)).sense_data,
            parse_hex("72 07 27 02 00 00 00 00"));
}

TEST_F(SimDisk, ModeSelectTakesWhatModeSenseSaid) {
  Bytes list = send(a, "1a 00 3f 00 ff 00", 255).data;
  ASSERT_EQ(list.size(), 130u);
  EXPECT_EQ(send_out(a, "15 10 00 00 82 00", list).status, 0);
  EXPECT_EQ(refusal(b, "00 00 00 00 00 00"), none) << "nothing changed";
  EXPECT_EQ(send_out(a, "15 10 00 00 00 00", {}).status, 0);
}

TEST_F(SimDisk, ModeSelectRefusesAllOrNothing) {
  const struct {
    const char *what;
    const char *cdb;
    std::string list;
    Sense sense;
  } cases[] = {
      {"no PF", "15 00 00 00 10 00", control_list, invalid_field_in_cdb},
      {"SP", "15 11 00 00 10 00", control_list, invalid_field_in_cdb},
      {"less data than announced", "15 10 00 00 11 00", control_list, invalid_field_in_cdb},
      {"header cut", "15 10 00 00 03 00", "00 00 00", parameter_list_length_error},
      {"descriptor cut", "15 10 00 00 08 00", "00 00 00 08 00 00 00 00",
       parameter_list_length_error},
      {"page cut", "15 10 00 00 0f 00", control_list, parameter_list_length_error},
      {"descriptor length", "15 10 00 00 10 00", "00 00 00 0c 00 00 00 00 00 00 00 00 00 00 00 00",
       invalid_field_in_parameter_list},
      {"another format", "15 10 00 00 0c 00", "00 00 00 08 00 20 00 00 00 00 10 00",
       invalid_field_in_parameter_list},
      {"unknown page", "15 10 00 00 06 00", "00 00 00 00 01 00", invalid_field_in_parameter_list},
      {"page length", "15 10 00 00 10 00", "00 00 00 00 0a 09 06 10 08 00 00 00 00 00 00 00",
       invalid_field_in_parameter_list},
      {"unchangeable bit after a good page", "15 10 00 00 1c 00",
       std::string(control_list) + "0a 0a 02 30 00 00 00 00 00 00 00 00",
       invalid_field_in_parameter_list},
      {"geometry", "15 10 00 00 1c 00",
       "00 00 00 00 04 16 00 00 82 10 00 00 00 00 00 00 00 00 00 00 00 00 00 00 1c 20 00 00",
       invalid_field_in_parameter_list},
  };
  const Bytes before = send(a, "1a 00 3f 00 ff 00", 255).data;
  for (const auto &[what, cdb, list, sense] : cases) {
    EXPECT_EQ(send_out(a, cdb, parse_hex(list)).sense(), sense) << what;
    EXPECT_EQ(send(a, "1a 00 3f 00 ff 00", 255).data, before) << what;
  }
  EXPECT_EQ(refusal(b, "00 00 00 00 00 00"), none);
}

TEST_F(SimDisk, UnitAttentionsAreToldOnceAndNotByInquiry) {
  ASSERT_EQ(
      send_out(a, "15 10 00 00 10 00", parse_hex("00 00 00 00 0a 0a 02 10 08 00 00 00 00 00 00 00"))
          .status,
      0);
  EXPECT_EQ(send(b, "12 00 00 00 60 00", 96).status, 0);
  EXPECT_EQ(send(b, "1a 00 0a 00 ff 00").sense(), mode_parameters_changed);
  EXPECT_EQ(send(b, "1a 00 0a 00 ff 00").status, 0);
  EXPECT_EQ(send(other_host, "03 00 00 00 ff 00", 255).data, mode_parameters_changed.fixed());
  EXPECT_EQ(send(other_host, "03 00 00 00 ff 00", 255).data, none.fixed());
  EXPECT_EQ(send(other_host, "00 00 00 00 00 00").status, 0) << "told as sense data";
}

// --- reservations ---

constexpr std::uint8_t register_key = 0, reserve = 1, release = 2, clear = 3, preempt = 4,
                       register_and_ignore = 6;
constexpr std::uint8_t write_exclusive = 1, exclusive_access = 3, write_exclusive_registrants = 5,
                       exclusive_access_registrants = 6, exclusive_access_all = 8;
constexpr int conflict = status::reservation_conflict;

class SimReservations : public SimDisk {
 protected:
  Answer out(const char *node, std::uint8_t action, std::uint64_t key, std::uint64_t action_key,
             std::uint8_t type = 0, std::uint8_t flags = 0) {
    char cdb[32];
    std::snprintf(cdb, sizeof cdb, "5f %02x %02x 00 00 00 00 00 18 00", action, type);
    Bytes list(24);
    kzddl::store_be64(&list[0], key);
    kzddl::store_be64(&list[8], action_key);
    list[20] = flags;
    return send_out(node, cdb, list);
  }

  void registered(std::initializer_list<std::pair<const char *, std::uint64_t>> keys) {
    for (const auto &[node, key] : keys)
      ASSERT_EQ(out(node, register_key, 0, key).status, 0) << node;
  }

  /// READ KEYS or READ RESERVATION, behind PRGENERATION.
  std::string in(const char *action) {
    const Bytes data = send(a, std::string("5e ") + action + " 00 00 00 00 00 00 ff 00", 255).data;
    std::string text = std::to_string(data.at(3)) + ":";
    EXPECT_EQ(data.size(), 8u + data.at(7));
    for (std::size_t i = 8; i < data.size(); ++i)
      text += " " + std::to_string(data[i]);
    return text;
  }
  std::string keys() { return in("00"); }
  std::string reservation() { return in("01"); }

  int read(const char *node) { return send(node, "28 00 00 00 00 00 00 00 01 00", 512).status; }
  int write(const char *node) {
    return send_out(node, "2a 00 00 00 00 00 00 00 01 00", Bytes(512)).status;
  }
  /// What the next command says, which then is told.
  Sense attention(const char *node) { return refusal(node, "00 00 00 00 00 00", 0); }
};

TEST_F(SimReservations, EachTypeLetsItsOwnThrough) {
  const struct {
    std::uint8_t type;
    int reads_registered, writes_registered, reads_stranger;
  } cases[] = {
      {1, 0, conflict, 0}, {3, conflict, conflict, conflict},
      {5, 0, 0, 0},        {6, 0, 0, conflict},
      {7, 0, 0, 0},        {8, 0, 0, conflict},
  };
  registered({{a, 1}, {b, 2}});
  for (const auto &[type, reads_registered, writes_registered, reads_stranger] : cases) {
    SCOPED_TRACE(+type);
    ASSERT_EQ(out(a, reserve, 1, 0, type).status, 0);
    EXPECT_EQ(read(a), 0);
    EXPECT_EQ(write(a), 0);
    EXPECT_EQ(read(b), reads_registered);
    EXPECT_EQ(write(b), writes_registered);
    EXPECT_EQ(read(other_host), reads_stranger);
    EXPECT_EQ(write(other_host), conflict);
    EXPECT_EQ(send(other_host, "1a 00 3f 00 ff 00", 255).status, reads_stranger);
    EXPECT_EQ(send_out(other_host, "15 10 00 00 00 00", {}).status, conflict);
    for (const char *cdb : {"00 00 00 00 00 00", "12 00 00 00 60 00",
                            "25 00 00 00 00 00 00 00 00 00", "5e 00 00 00 00 00 00 00 08 00"})
      EXPECT_EQ(send(other_host, cdb, 96).status, 0) << cdb;
    ASSERT_EQ(out(a, release, 1, 0, type).status, 0);
    attention(b);
  }
}

TEST_F(SimReservations, Registrations) {
  EXPECT_EQ(keys(), "0:");
  EXPECT_EQ(out(a, register_key, 5, 1).status, conflict) << "who is not registered has no key";
  EXPECT_EQ(out(a, register_key, 0, 0).status, 0) << "nothing to do";
  EXPECT_EQ(keys(), "0:");
  registered({{a, 1}, {other_host, 3}});
  EXPECT_EQ(keys(), "2: 0 0 0 0 0 0 0 1 0 0 0 0 0 0 0 3") << "one for each nexus";
  EXPECT_EQ(out(a, register_key, 2, 9).status, conflict) << "a wrong key";
  EXPECT_EQ(out(a, register_key, 0, 9).status, conflict);
  EXPECT_EQ(out(a, register_key, 1, 9).status, 0);
  EXPECT_EQ(out(b, register_and_ignore, 77, 2).status, 0);
  EXPECT_EQ(keys(), "4: 0 0 0 0 0 0 0 9 0 0 0 0 0 0 0 3 0 0 0 0 0 0 0 2");
  EXPECT_EQ(out(b, register_and_ignore, 0, 0).status, 0);
  EXPECT_EQ(out(other_host, register_key, 3, 0).status, 0);
  EXPECT_EQ(keys(), "6: 0 0 0 0 0 0 0 9");
  EXPECT_EQ(send(a, "5e 00 00 00 00 00 00 00 0a 00", 255).data,
            parse_hex("00000006 00000008 0000"));
}

TEST_F(SimReservations, ReserveAndRelease) {
  EXPECT_EQ(out(a, reserve, 0, 0, exclusive_access).status, conflict) << "not registered";
  registered({{a, 1}, {b, 2}, {other_host, 3}});
  EXPECT_EQ(out(a, reserve, 2, 0, exclusive_access).status, conflict) << "a wrong key";
  for (const std::uint8_t type : {0x00, 0x02, 0x09, 0x13})
    EXPECT_EQ(out(a, reserve, 1, 0, type).sense(), invalid_field_in_cdb) << +type;
  EXPECT_EQ(out(a, release, 1, 0, exclusive_access).status, 0) << "nothing to release";
  EXPECT_EQ(out(a, reserve, 1, 0, write_exclusive_registrants).status, 0);
  EXPECT_EQ(out(a, reserve, 1, 0, write_exclusive_registrants).status, 0) << "its own again";
  EXPECT_EQ(out(a, reserve, 1, 0, exclusive_access).status, conflict) << "of another type";
  EXPECT_EQ(out(b, reserve, 2, 0, write_exclusive_registrants).status, conflict);
  EXPECT_EQ(reservation(), "3: 0 0 0 0 0 0 0 1 0 0 0 0 0 5 0 0");

  EXPECT_EQ(out(b, release, 2, 0, write_exclusive_registrants).status, 0) << "not its own: kept";
  EXPECT_EQ(out(a, release, 1, 0, write_exclusive).sense(), invalid_release);
  EXPECT_EQ(write(b), 0);
  EXPECT_EQ(out(a, release, 9, 0, write_exclusive_registrants).status, conflict);
  EXPECT_EQ(out(a, release, 1, 0, write_exclusive_registrants).status, 0);
  EXPECT_EQ(reservation(), "3:") << "neither counts as a generation";
  EXPECT_EQ(attention(b), reservations_released);
  EXPECT_EQ(attention(other_host), reservations_released);
  EXPECT_EQ(attention(a), none);

  ASSERT_EQ(out(a, reserve, 1, 0, write_exclusive).status, 0);
  ASSERT_EQ(out(a, release, 1, 0, write_exclusive).status, 0);
  EXPECT_EQ(attention(b), none) << "nobody shared it";
}

TEST_F(SimReservations, EndsWithItsHoldersRegistration) {
  registered({{a, 1}, {b, 2}});
  ASSERT_EQ(out(b, reserve, 2, 0, exclusive_access_registrants).status, 0);
  ASSERT_EQ(out(b, register_key, 2, 0).status, 0);
  EXPECT_EQ(attention(a), reservations_released);
  EXPECT_EQ(reservation(), "3:");

  registered({{b, 2}});
  ASSERT_EQ(out(b, reserve, 2, 0, exclusive_access).status, 0);
  ASSERT_EQ(out(b, register_key, 2, 0).status, 0);
  EXPECT_EQ(attention(a), none) << "nobody shared it";
  EXPECT_EQ(reservation(), "5:");

  registered({{b, 2}});
  ASSERT_EQ(out(b, reserve, 2, 0, exclusive_access_all).status, 0);
  EXPECT_EQ(reservation(), "6: 0 0 0 0 0 0 0 0 0 0 0 0 0 8 0 0") << "all hold it";
  ASSERT_EQ(out(b, register_key, 2, 0).status, 0);
  EXPECT_EQ(read(b), conflict);
  EXPECT_EQ(read(a), 0);
  ASSERT_EQ(out(a, preempt, 1, 1).status, 0) << "the last one removes itself";
  EXPECT_EQ(attention(a), none);
  EXPECT_EQ(read(b), 0);

  registered({{a, 1}});
  ASSERT_EQ(out(a, reserve, 1, 0, exclusive_access_all).status, 0);
  ASSERT_EQ(out(a, register_key, 1, 0).status, 0) << "the last one leaves";
  EXPECT_EQ(read(b), 0);
}

TEST_F(SimReservations, PreemptTakesOver) {
  registered({{a, 1}, {b, 2}, {other_host, 2}});
  ASSERT_EQ(out(b, reserve, 2, 0, exclusive_access).status, 0);
  EXPECT_EQ(out(a, preempt, 9, 2, exclusive_access).status, conflict) << "a wrong key of its own";
  EXPECT_EQ(out(a, preempt, 1, 9, exclusive_access).status, conflict) << "nobody's key";
  EXPECT_EQ(out(a, preempt, 1, 0, exclusive_access).sense(), invalid_field_in_parameter_list);
  EXPECT_EQ(out(a, preempt, 1, 2, 0x02).sense(), invalid_field_in_cdb);
  EXPECT_EQ(reservation(), "3: 0 0 0 0 0 0 0 2 0 0 0 0 0 3 0 0");

  EXPECT_EQ(out(a, preempt, 1, 2, write_exclusive).status, 0);
  EXPECT_EQ(keys(), "4: 0 0 0 0 0 0 0 1");
  EXPECT_EQ(reservation(), "4: 0 0 0 0 0 0 0 1 0 0 0 0 0 1 0 0");
  EXPECT_EQ(attention(b), registrations_preempted);
  EXPECT_EQ(attention(other_host), registrations_preempted);
  EXPECT_EQ(attention(b), none);
  EXPECT_EQ(write(b), conflict);

  registered({{b, 2}});
  EXPECT_EQ(out(a, preempt, 1, 1, exclusive_access).status, 0) << "its own, of another type now";
  EXPECT_EQ(keys(), "6: 0 0 0 0 0 0 0 1 0 0 0 0 0 0 0 2");
  EXPECT_EQ(attention(b), reservations_released);
}

TEST_F(SimReservations, PreemptOfRegistrationsAlone) {
  registered({{a, 1}, {b, 2}, {other_host, 3}});
  ASSERT_EQ(out(a, reserve, 1, 0, exclusive_access).status, 0);
  EXPECT_EQ(out(b, preempt, 2, 3, write_exclusive).status, 0);
  EXPECT_EQ(attention(other_host), registrations_preempted);
  EXPECT_EQ(reservation(), "4: 0 0 0 0 0 0 0 1 0 0 0 0 0 3 0 0") << "the reservation stays";
  EXPECT_EQ(keys(), "4: 0 0 0 0 0 0 0 1 0 0 0 0 0 0 0 2");

  ASSERT_EQ(out(a, release, 1, 0, exclusive_access).status, 0);
  ASSERT_EQ(out(a, reserve, 1, 0, exclusive_access_all).status, 0);
  EXPECT_EQ(out(b, preempt, 2, 0, exclusive_access).status, 0) << "from all registrants";
  EXPECT_EQ(attention(a), registrations_preempted);
  EXPECT_EQ(reservation(), "5: 0 0 0 0 0 0 0 2 0 0 0 0 0 3 0 0");
}

TEST_F(SimReservations, Clear) {
  registered({{a, 1}, {b, 2}});
  ASSERT_EQ(out(a, reserve, 1, 0, exclusive_access).status, 0);
  EXPECT_EQ(out(other_host, clear, 0, 0).status, conflict);
  EXPECT_EQ(out(b, clear, 2, 0).status, 0);
  EXPECT_EQ(attention(a), reservations_preempted);
  EXPECT_EQ(keys(), "3:");
  EXPECT_EQ(write(other_host), 0);
}

TEST_F(SimReservations, RequestsThatMakeNoSense) {
  registered({{a, 1}});
  const Bytes list(32);
  for (const char *cdb : {"5f 00 00 00 00 00 00 00 17 00", "5f 00 00 00 00 00 00 00 20 00",
                          "5f 00 00 00 00 01 00 00 18 00"})
    EXPECT_EQ(send_out(a, cdb, list).sense(), parameter_list_length_error) << cdb;
  EXPECT_EQ(send_out(a, "5f 00 00 00 00 00 00 00 18 00", Bytes(23)).sense(), invalid_field_in_cdb);
  EXPECT_EQ(out(a, 7, 1, 2).sense(), invalid_field_in_cdb);
  EXPECT_EQ(out(a, register_key, 1, 2, 0, 0x08).sense(), invalid_field_in_parameter_list);
  EXPECT_EQ(refusal(a, "5e 04 00 00 00 00 00 00 ff 00"), invalid_field_in_cdb);
  EXPECT_EQ(send(a, "5e 02 00 00 00 00 00 00 ff 00", 255).data, parse_hex("0008 01 90 ea01 0000"));
  EXPECT_EQ(out(a, register_key, 1, 2, 0, 0x01).status, 0);
  EXPECT_EQ(send(a, "5e 02 00 00 00 00 00 00 04 00", 255).data, parse_hex("0008 01 91"));
}

TEST_F(SimReservations, Elsewhere) {
  disk->reserve_elsewhere(true);
  EXPECT_EQ(read(a), conflict);
  EXPECT_EQ(write(other_host), conflict);
  EXPECT_EQ(send(a, "1a 00 3f 00 ff 00", 255).status, conflict);
  disk->reserve_elsewhere(false);
  EXPECT_EQ(read(a), 0);
  EXPECT_EQ(keys(), "1:");
}

// --- target port groups ---

class SimGroups : public SimDisk {
 protected:
  SimGroups() { use_states(AccessState::active_optimized, AccessState::active_non_optimized); }

  void use_states(AccessState one, AccessState two) {
    use({.groups = {{.id = 1, .state = one, .preferred = true, .ports = {1}},
                    {.id = 2, .state = two, .ports = {2, 0x1234}}}});
  }

  Bytes report(const char *node) {
    return send(node, "a3 0a 00 00 00 00 00 00 00 ff 00 00", 255).data;
  }

  Answer set(const char *node, std::string_view list) {
    const Bytes data = parse_hex(list);
    char cdb[64];
    std::snprintf(cdb, sizeof cdb, "a4 0a 00 00 00 00 00 00 00 %02x 00 00",
                  static_cast<unsigned>(data.size()));
    return send_out(node, cdb, data);
  }
};

TEST_F(SimGroups, Report) {
  const Bytes whole = parse_hex(
      "0000001c  80 0f 0001 00 00 00 01 00000001  01 0f 0002 00 00 00 02 00000002 00001234");
  EXPECT_EQ(report(a), whole);
  EXPECT_EQ(report(b), whole);
  EXPECT_EQ(send(a, "a3 0a 00 00 00 00 00 00 00 05 00 00", 255).data, parse_hex("0000001c 80"));
  EXPECT_EQ(refusal(a, "a3 05 00 00 00 00 00 00 00 ff 00 00"), invalid_field_in_cdb);
  EXPECT_EQ(send(a, "12 00 00 00 60 00", 96).data.at(5), 0x38);
}

TEST_F(SimGroups, WithoutGroupsTheCommandsAreUnknown) {
  use({});
  EXPECT_EQ(refusal(a, "a3 0a 00 00 00 00 00 00 00 ff 00 00"), invalid_operation_code);
  EXPECT_EQ(set(a, "00000000 01 00 0001").sense(), invalid_operation_code);
  EXPECT_EQ(send(a, "12 00 00 00 60 00", 96).data.at(5), 0x08);
}

TEST_F(SimGroups, SetTakesEffectAndTellsTheOtherPaths) {
  EXPECT_EQ(set(a, "00000000 02 00 0001 00 00 0002").status, 0);
  EXPECT_EQ(report(a), parse_hex("0000001c  82 0f 0001 00 01 00 01 00000001"
                                 "00 0f 0002 00 01 00 02 00000002 00001234"));
  for (const char *node : {b, other_host}) {
    EXPECT_EQ(refusal(node, "a3 0a 00 00 00 00 00 00 00 ff 00 00"), access_state_changed);
    EXPECT_EQ(report(node), report(a)) << "in two commands";
  }
  EXPECT_EQ(refusal(a, "00 00 00 00 00 00", 0), target_port_in_standby);
  EXPECT_EQ(send(b, "00 00 00 00 00 00").status, 0);
  EXPECT_EQ(set(b, "00000000 00 00 0002").status, 0);
  EXPECT_EQ(send(other_host, "1a 00 3f 00 ff 00", 255).status, 0) << "nothing changed";
}

TEST_F(SimGroups, SetRefusesAllOrNothing) {
  const Bytes before = report(a);
  for (const char *list :
       {"", "00000000", "00000000 01 00 0003", "00000000 0f 00 0001", "00000000 04 00 0001",
        "00000000 0e 00 0001", "00000000 02 00 0001 00 00 0009"})
    EXPECT_EQ(set(a, list).sense(), invalid_field_in_parameter_list) << list;
  EXPECT_EQ(set(a, "00000000 01 00 0001 00").sense(), parameter_list_length_error);
  EXPECT_EQ(send_out(a, "a4 0a 00 00 00 00 00 00 00 0c 00 00", Bytes(8)).sense(),
            invalid_field_in_cdb);
  EXPECT_EQ(send_out(a, "a4 05 00 00 00 00 00 00 00 08 00 00", Bytes(8)).sense(),
            invalid_field_in_cdb);
  EXPECT_EQ(report(a), before);
  EXPECT_EQ(send(b, "00 00 00 00 00 00").status, 0);
}

TEST_F(SimGroups, WhatWorksInEachState) {
  use_states(AccessState::standby, AccessState::unavailable);
  for (const char *cdb : {"00 00 00 00 00 00", "28 00 00 00 00 00 00 00 01 00"}) {
    EXPECT_EQ(refusal(a, cdb), target_port_in_standby) << cdb;
    EXPECT_EQ(refusal(b, cdb), target_port_unavailable) << cdb;
  }
  EXPECT_EQ(send(a, "1a 00 3f 00 ff 00", 255).status, 0);
  EXPECT_EQ(refusal(b, "1a 00 3f 00 ff 00"), target_port_unavailable);
  for (const char *cdb : {"12 00 00 00 60 00", "03 00 00 00 ff 00", "5e 00 00 00 00 00 00 00 ff 00",
                          "a3 0a 00 00 00 00 00 00 00 ff 00 00"}) {
    EXPECT_EQ(send(a, cdb, 255).status, 0) << cdb;
    EXPECT_EQ(send(b, cdb, 255).status, 0) << cdb;
  }
  EXPECT_EQ(set(b, "00000000 00 00 0002").status, 0) << "the way out";
  EXPECT_EQ(send(b, "00 00 00 00 00 00").status, 0);
}

// --- copy ---

TEST_F(SimDisk, CopyParametersAsCaptured) {
  const char *cdb = "84 03 00 00 00 00 00 00 00 00 00 00 00 ff 00 00";
  Bytes captured =
      capture::load(KZDDL_TEST_DATA "/lio-path1/receive-copy-operating-parameters.hex");
  captured.resize(46);  // what it announces
  EXPECT_EQ(send(a, cdb, 255).data, captured);
  EXPECT_EQ(refusal(a, "84 04 00 00 00 00 00 00 00 00 00 00 00 ff 00 00"), invalid_field_in_cdb);
  use({.copy = CopyParameters::mode_page});
  EXPECT_EQ(refusal(a, cdb), invalid_operation_code);
}

// --- threads ---

TEST_F(SimDisk, PathsInManyThreads) {
  const auto work = [this](const char *node, std::uint8_t value) {
    for (int i = 0; i < 200; ++i) {
      EXPECT_EQ(send_out(node, "2a 00 00 00 00 00 00 00 08 00", Bytes(4096, value)).status, 0);
      const Bytes data = send(node, "28 00 00 00 00 00 00 00 08 00", 4096).data;
      EXPECT_EQ(data, Bytes(4096, data.at(0))) << "a command is carried out whole";
    }
  };
  std::jthread one(work, a, 1);
  std::jthread two(work, b, 2);
}

// --- arrays ---

TEST_F(SimDisk, DemonstrationArray) {
  install(host, demo_array());
  const char *report = "a3 0a 00 00 00 00 00 00 00 ff 00 00";
  // The first path to each unit, through controller A; its multipath node goes to the owner.
  EXPECT_EQ(send("/dev/sda", report, 255).data,
            parse_hex("00000020  80 0f 0001 00 00 00 02 00000001 00000002"
                      "01 0f 0002 00 00 00 02 00000003 00000004"));
  EXPECT_EQ(send("/dev/sdb", report, 255).data.at(4), 0x01);
  const auto owner_port = [this](const char *node) {
    for (const Node &each : host.nodes())
      if (each.name == node) return +each.port.relative_id;
    return 0;
  };
  EXPECT_EQ(owner_port("/dev/kz/rjox/disk0"), 1);
  EXPECT_EQ(owner_port("/dev/kz/rjox/disk1"), 3);
  EXPECT_EQ(send("/dev/sdb", "25 00 00 00 00 00 00 00 00 00", 8).data,
            parse_hex("ffffffff 00000200"));
  EXPECT_EQ(send("/dev/sdc", "25 00 00 00 00 00 00 00 00 00", 8).data,
            parse_hex("001fffff 00001000"));
  EXPECT_EQ(refusal("/dev/sdd", "00 00 00 00 00 00", 0), (Sense{0x02, 0x04, 0x04}));
  std::FILE *file = host.open_file("/proc/partitions");
  ASSERT_NE(file, nullptr);
  char text[4096] = {};
  ASSERT_NE(std::fread(text, 1, sizeof text - 1, file), 0u);
  std::fclose(file);
  for (const char *line :
       {"8 0 1048576 sda\n", "8 16 4294967296 sdb\n", "8 32 8388608 sdc\n", "8 48 0 sdd\n"})
    EXPECT_NE(std::string_view(text).find(line), std::string_view::npos) << line;
}

TEST_F(SimDisk, DescribedInJson) {
  const std::string file = testing::TempDir() + "sim-disk-test-" + std::to_string(getpid());
  std::ofstream(file) << R"({"units": [
    {"blocks": 4294967296, "block_size": 4096, "answers_page_0": true, "copy": "mode page",
     "geometry": {"sectors": 32, "heads": 16, "cylinders": 622, "bytes_per_sector": 512,
                  "rotation_rate": 15000},
     "groups": [{"id": 1, "state": "standby"}, {"id": 7, "preferred": true}],
     "multipath": "m",
     "paths": [{"node": "/dev/sda", "device": "8:0", "port": 1, "group": 1},
               {"node": "/dev/sdb", "device": "8:16", "port": 2, "group": 7},
               {"node": "/dev/sdc", "device": "8:32", "port": 2, "group": 7,
                "initiator": "host1"}]},
    {"geometry": false, "copy": "none", "paths": [{"node": "/dev/sdd", "device": "8:48"}]}]})";
  install_file(host, file);
  EXPECT_EQ(send("/dev/sda", "a3 0a 00 00 00 00 00 00 00 ff 00 00", 255).data,
            parse_hex("00000018 02 0f 0001 00 00 00 01 00000001 80 0f 0007 00 00 00 01 00000002"));
  EXPECT_EQ(send("/dev/sda", "25 00 00 00 00 00 00 00 00 00", 8).data,
            parse_hex("ffffffff 00001000"));
  const Bytes format = pages_of(send("/dev/sdb", "1a 00 03 00 ff 00", 255));
  EXPECT_EQ(Bytes(&format[10], &format[14]), parse_hex("0020 0200"));
  const Bytes geometry = pages_of(send("/dev/sdb", "1a 00 04 00 ff 00", 255));
  EXPECT_EQ(Bytes(&geometry[2], &geometry[6]), parse_hex("00026e 10"));
  EXPECT_EQ(Bytes(&geometry[20], &geometry[22]), parse_hex("3a98"));
  EXPECT_EQ(send("/dev/kz/rjox/m", "1a 00 00 00 ff 00", 255).status, 0);
  EXPECT_EQ(refusal("/dev/sdb", "84 03 00 00 00 00 00 00 00 00 00 00 00 ff 00 00"),
            invalid_operation_code);
  // Two hosts on one port: each has to register for itself.
  const Bytes list = parse_hex("0000000000000000 0000000000000001 0000000000000000");
  EXPECT_EQ(send_out("/dev/sdb", "5f 00 00 00 00 00 00 00 18 00", list).status, 0);
  EXPECT_EQ(send_out("/dev/kz/rjox/m", "5f 00 00 00 00 00 00 00 18 00", list).status, conflict);
  EXPECT_EQ(send_out("/dev/sdc", "5f 00 00 00 00 00 00 00 18 00", list).status, 0);
  for (const char *cdb : {"1a 00 03 00 ff 00", "1a 00 0e 00 ff 00", "1a 00 00 00 ff 00"})
    EXPECT_EQ(refusal("/dev/sdd", cdb), invalid_field_in_cdb) << cdb;
  std::filesystem::remove(file);
}

}  // namespace
}  // namespace sim
