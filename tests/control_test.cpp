// What the control service does without a kernel: how it reads requests of both word sizes, names
// units, keeps links, and shares out work.
#include <gtest/gtest.h>
#include <scsi/scsi_ioctl.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <future>

#include "control/call.h"
#include "control/link_directory.h"
#include "control/records.h"
#include "control/unit_names.h"
#include "control/workers.h"

namespace control {
namespace {

/// A caller's memory, and the kernel, which brings what the service asks for.
class Caller {
 public:
  explicit Caller(bool from_32_bit) : from_32_bit_(from_32_bit) {}

  template <class Record>
  void put(std::uint64_t address, const Record &record) {
    std::memcpy(memory_.data() + address, &record, sizeof record);
  }

  /// The end of a request, after any number of steps.
  Step call(unsigned request, std::uint64_t argument) {
    bytes.clear();
    std::size_t out_size = 0;
    for (steps = 1; steps <= 5; ++steps) {
      const Step step = examine({request, argument, from_32_bit_, bytes, out_size});
      if (!std::holds_alternative<Needs>(step)) return step;
      needs = std::get<Needs>(step);
      if (between_steps) between_steps();
      bytes.clear();
      for (const Range &range : needs.in) {
        if (range.length > memory_.size() || range.address > memory_.size() - range.length) {
          return Refusal{EFAULT};
        }
        bytes.insert(bytes.end(), memory_.begin() + static_cast<std::ptrdiff_t>(range.address),
                     memory_.begin() + static_cast<std::ptrdiff_t>(range.address + range.length));
      }
      out_size = needs.out.size();
    }
    ADD_FAILURE() << "the service asks on and on";
    return Refusal{0};
  }

  std::vector<std::byte> bytes;
  Needs needs;
  int steps = 0;
  std::function<void()> between_steps;

 private:
  bool from_32_bit_;
  std::vector<std::byte> memory_ = std::vector<std::byte>(64 * 1024);
};

int error_of(const Step &step) {
  const auto *refusal = std::get_if<Refusal>(&step);
  return refusal != nullptr ? refusal->error : 0;
}

std::vector<Range> list(const Ranges &ranges) { return {ranges.begin(), ranges.end()}; }

constexpr std::uint64_t header_place = 0x100;
constexpr std::uint64_t record_place = 0x200;
constexpr std::uint64_t cdb_place = 0x300;
constexpr std::uint64_t sense_place = 0x400;
constexpr std::uint64_t data_place = 0x1000;

template <class Pointer>
class CallOf : public testing::Test {
 protected:
  using Header = SgHeader<Pointer>;
  using Record = IndirectRecord<Pointer>;

  CallOf() : caller(sizeof(Pointer) == 4) {
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.cmd_len = 6;
    header.mx_sb_len = 32;
    header.dxfer_len = 255;
    header.cmdp = cdb_place;
    header.sbp = sense_place;
    record = {.dev_lo = 0x810, .dev_hi = 5, .cmd = SG_IO, .oflags = 0x800, .arg = data_place};
  }

  /// SG_IO itself, with the record in dxferp.
  Step sg_io() {
    header.dxferp = record_place;
    caller.put(header_place, header);
    caller.put(record_place, record);
    return caller.call(SG_IO, header_place);
  }

  /// The driver's request with SG_IO inside.
  Step indirect() {
    header.dxferp = data_place;
    record.arg = header_place;
    caller.put(header_place, header);
    caller.put(record_place, record);
    return caller.call(indirect_request, record_place);
  }

  Caller caller;
  Header header{};
  Record record{};
};

using WordSizes = testing::Types<Pointer32, Pointer64>;
TYPED_TEST_SUITE(CallOf, WordSizes);

TYPED_TEST(CallOf, SgIoIsReadInBothForms) {
  using Header = typename TestFixture::Header;
  this->caller.put(data_place, std::array<char, 4>{'d', 'a', 't', 'a'});
  this->caller.put(cdb_place, std::array<char, 6>{0x12, 0, 0, 0, 9, 0});
  for (const bool outer : {true, false}) {
    const Step step = outer ? this->sg_io() : this->indirect();
    ASSERT_TRUE(std::holds_alternative<Command>(step)) << error_of(step);
    const Command &command = std::get<Command>(step);
    EXPECT_EQ(command.device, 0x500000810u);
    EXPECT_EQ(command.open_flags, 0x800);
    EXPECT_EQ(command.request, unsigned{SG_IO});
    EXPECT_EQ(command.from_32_bit, sizeof(TypeParam) == 4);
    EXPECT_TRUE(command.data_moves && command.data_return);
    const std::byte *bytes = this->caller.bytes.data();
    EXPECT_EQ(std::memcmp(bytes + command.argument_at, &this->header, sizeof this->header), 0);
    EXPECT_EQ(std::memcmp(bytes + command.cdb_at, "\x12\0\0\0\x09", 6), 0);
    EXPECT_EQ(std::memcmp(bytes + command.data_at, "data", 4), 0);
    EXPECT_EQ(
        list(this->caller.needs.out),
        (std::vector<Range>{{header_place, sizeof(Header)}, {data_place, 255}, {sense_place, 32}}));
  }
}

TYPED_TEST(CallOf, ADirectionDecidesWhatComesBack) {
  using Header = typename TestFixture::Header;
  const std::size_t records = sizeof(Header) + sizeof(typename TestFixture::Record) + 6;
  struct Row {
    int direction;
    std::size_t in;
    std::size_t out;
  };
  for (const auto &[direction, in, out] :
       {Row{SG_DXFER_NONE, 0, 0}, Row{SG_DXFER_TO_DEV, 255, 0}, Row{SG_DXFER_FROM_DEV, 255, 255},
        Row{SG_DXFER_TO_FROM_DEV, 255, 255}, Row{0, 255, 255}, Row{99, 255, 255}}) {
    this->header.dxfer_direction = direction;
    this->header.mx_sb_len = 0;
    ASSERT_TRUE(std::holds_alternative<Command>(this->indirect())) << direction;
    EXPECT_EQ(this->caller.needs.in.size(), records + in) << direction;
    EXPECT_EQ(this->caller.needs.out.size(), sizeof(Header) + out) << direction;
  }
  this->header.mx_sb_len = 255;
  this->header.sbp = 0;
  ASSERT_TRUE(std::holds_alternative<Command>(this->sg_io()));
  EXPECT_EQ(this->caller.needs.out.size(), sizeof(Header) + 255) << "no sense buffer";
}

TYPED_TEST(CallOf, WhatIsRefusedIsRefusedInBothForms) {
  const auto error = [this](auto field, auto value) {
    const auto kept = this->header.*field;
    this->header.*field = value;
    const int outer = error_of(this->sg_io());
    EXPECT_EQ(error_of(this->indirect()), outer);
    this->header.*field = kept;
    return outer;
  };
  using Header = typename TestFixture::Header;
  EXPECT_EQ(error(&Header::interface_id, 'T'), EINVAL);
  EXPECT_EQ(error(&Header::iovec_count, 1), EINVAL);
  EXPECT_EQ(error(&Header::flags, 4u), EINVAL);
  EXPECT_EQ(error(&Header::dxfer_len, 0xFFFFFFFF), ENOMEM);
  EXPECT_EQ(error(&Header::cmdp, TypeParam(-1)), EFAULT);
  EXPECT_EQ(error(&Header::pack_id, 1), 0);
  this->record.cmd = SG_GET_VERSION_NUM;
  EXPECT_EQ(error_of(this->sg_io()), ENOTTY);
  EXPECT_EQ(error_of(this->indirect()), ENOTTY);
  EXPECT_EQ(error_of(this->caller.call(SCSI_IOCTL_SEND_COMMAND, record_place)), ENOTTY);
}

TYPED_TEST(CallOf, MemoryThatChangesBetweenTheStepsEndsTheRequest) {
  // Each time that the service asks, the header is another: it must neither go on nor be misled.
  for (const auto change : {0, 1}) {
    this->caller.between_steps = [&] {
      if (change == 0) {
        this->header.cmd_len = static_cast<std::uint8_t>(this->header.cmd_len % 16 + 1);
      } else {
        this->header.dxfer_len = this->header.dxfer_len % 300 + 1;
      }
      this->caller.put(header_place, this->header);
    };
    EXPECT_EQ(error_of(this->sg_io()), EINVAL);
    EXPECT_LE(this->caller.steps, 5);
  }
}

TYPED_TEST(CallOf, LegacyBuffersAreReadAsFarAsTheirCommandGoes) {
  constexpr std::uint64_t place = 0x800;
  struct Row {
    std::uint8_t opcode;
    std::uint32_t in;
    std::uint32_t out;
    std::uint64_t read;
    std::uint64_t written;
  };
  for (const auto &[opcode, in, out, read, written] :
       {Row{0x12, 0, 36, 14, 36}, Row{0x2A, 512, 0, 18 + 512, 16}, Row{0xA3, 0, 4096, 20, 4096},
        Row{0x88, 3, 3, 24 + 3, 16}}) {
    this->record.cmd = SCSI_IOCTL_SEND_COMMAND;
    this->record.arg = place;
    this->caller.put(record_place, this->record);
    this->caller.put(place, LegacyHead{in, out});
    this->caller.put(place + sizeof(LegacyHead), opcode);
    const Step step = this->caller.call(indirect_request, record_place);
    ASSERT_TRUE(std::holds_alternative<Command>(step)) << int{opcode};
    EXPECT_EQ(std::get<Command>(step).request, unsigned{SCSI_IOCTL_SEND_COMMAND});
    EXPECT_EQ(list(this->caller.needs.in).at(1), (Range{place, read}));
    EXPECT_EQ(list(this->caller.needs.out), (std::vector<Range>{{place + 8, written}}));
  }
  for (const LegacyHead head : {LegacyHead{4097, 0}, LegacyHead{0, 4097}, LegacyHead{~0u, ~0u}}) {
    this->caller.put(place, head);
    EXPECT_EQ(error_of(this->caller.call(indirect_request, record_place)), EINVAL);
  }
}

TEST(UnitNames, DifferentIdentifiersAreDifferentFiles) {
  EXPECT_EQ(file_name("6001405ABC"), "6001405ABC");
  EXPECT_EQ(file_name("ACME disk/1_\x01\xFF"), "ACME_20disk_2F1_5F_01_FF");
  EXPECT_EQ(file_name(".."), "_2E.");
}

TEST(UnitNames, AUnitStandsForItsBestPath) {
  const auto path = [](const char *unit, const char *block, const char *raw, unsigned group,
                       std::uint8_t state, bool preferred) {
    return UnitPath{unit, block, raw, {.group = group, .state = state, .preferred = preferred}};
  };
  const UnitNodes nodes = choose_nodes({path("A", "/dev/sda", "/dev/sg0", 0, 2, true),
                                        path("A", "/dev/sdb", "/dev/sg1", 1, 0, false),
                                        path("A", "/dev/sdc", "/dev/sg2", 2, 0, true),
                                        path("A", "/dev/sdd", "/dev/sg3", 2, 0, true),
                                        path("B", "/dev/sde", "", 0, 0, false)});
  EXPECT_EQ(nodes.block, (NodeNames{{"A", "/dev/sdc"}, {"B", "/dev/sde"}}));
  EXPECT_EQ(nodes.raw, (NodeNames{{"A", "/dev/sg2"}}));
}

TEST(LinkDirectory, LinksAreMadeChangedAndRemovedAndOtherFilesStay) {
  namespace fs = std::filesystem;
  const fs::path top = fs::temp_directory_path() / ("links." + std::to_string(getpid()));
  const fs::path place = top / "jox";
  fs::create_directories(place);
  fs::create_symlink("/dev/gone", place / "left");
  fs::create_directory(place / "foreign");
  {
    LinkDirectory links(place);
    links.show({{"a", "/dev/sda"}, {"b", "/dev/sdb"}, {"foreign", "/dev/sdc"}});
    EXPECT_EQ(fs::read_symlink(place / "a"), "/dev/sda");
    EXPECT_FALSE(fs::exists(fs::symlink_status(place / "left")));
    links.show({{"a", "/dev/sdz"}});
    EXPECT_EQ(fs::read_symlink(place / "a"), "/dev/sdz");
    EXPECT_FALSE(fs::exists(fs::symlink_status(place / "b")));
    EXPECT_TRUE(fs::is_directory(place / "foreign"));
  }
  EXPECT_FALSE(fs::exists(fs::symlink_status(place / "a")));
  EXPECT_TRUE(fs::is_directory(place / "foreign"));
  fs::remove(place / "foreign");
  { const LinkDirectory links(place); }
  EXPECT_FALSE(fs::exists(place));
  fs::remove_all(top);
}

TEST(Workers, WorkIsDoneAtOnceUpToTheLimitAndAllOfItBeforeTheEnd) {
  std::atomic<int> idle = 0;
  std::atomic<int> done = 0;
  std::promise<void> all_started;
  std::promise<void> go;
  const std::shared_future<void> gate = go.get_future().share();
  {
    Workers workers(3, [&idle] { ++idle; });
    std::atomic<int> started = 0;
    const auto work = [&] {
      if (++started == 3) all_started.set_value();
      gate.wait();
      ++done;
    };
    for (int i = 0; i < 3; ++i)
      EXPECT_TRUE(workers.start(work));
    all_started.get_future().wait();
    EXPECT_FALSE(workers.start(work));
    EXPECT_TRUE(workers.busy());
    EXPECT_EQ(idle, 0);
    go.set_value();
    while (workers.busy())
      std::this_thread::yield();
    for (int i = 0; i < 200; ++i)
      while (!workers.start([&done] { ++done; })) {
      }
  }
  EXPECT_EQ(done, 203);
  EXPECT_GE(idle, 2);
}

}  // namespace
}  // namespace control
