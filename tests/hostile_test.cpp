// Every command family, by every way, against devices that lie: nothing crashes, leaks or stays
// open; a success hands over what it says, a failure nothing.
//
// KZDDL_HOSTILE_DEVICES is how many devices each way gets, KZDDL_HOSTILE_SEED the first one's seed.
#include "sim/hostile.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include "kzddl/ddl_name_value_api.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "support/disk_test.h"
#include "support/failing_malloc.h"

namespace kzddl_test {
namespace {

constexpr int data_size = 255;
constexpr char disk_name[] = "/dev/sdx";  // the "DISK" value
constexpr char multipath_name[] = "d0";

std::uint64_t setting(const char *variable, std::uint64_t otherwise) {
  const char *text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

/// What the process that meets the devices tells its parent, even by its death.
struct Progress {
  std::uint64_t seed;
  const char *family;  // both are the same program
  const char *failed;
  std::uint64_t failed_seed;
  const char *failed_family;
  int failures;
  std::uint64_t commands;
  std::uint64_t blocks;  // that were handed over
};

/// One call, with what the device's seed chose for it.
class Call {
 public:
  Call(odh &path, std::uint64_t seed, bool is_ia64, Progress &progress)
      : path(path), random(seed), is_ia64(is_ia64), progress_(progress) {}

  void require(bool holds, const char *what) {
    if (holds || progress_.failures++ != 0) return;
    progress_.failed = what;
    progress_.failed_seed = progress_.seed;
    progress_.failed_family = progress_.family;
  }
  /// A block of the library's that has room for `size` bytes; all are read.
  void require_block(const void *block, std::size_t size) {
    require(block != nullptr, "success hands over a block");
    if (block == nullptr) return;
    ++progress_.blocks;
    require(malloc_usable_size(const_cast<void *>(block)) >= size, "the block is long enough");
    const auto *bytes = static_cast<const unsigned char *>(block);
    for (std::size_t i = 0; i < size; ++i)
      sum_ = sum_ + bytes[i];
  }
  template <class List>
  auto pick(const List &list) {
    return random.pick(list);
  }
  int page() {
    static constexpr int pages[] = {0, 0x80, 0x83, 3, 4, 8, 0x0A, 0x0E, 0x3F};
    return pick(pages);
  }

  odh &path;
  sim::Random random;
  const bool is_ia64;

 private:
  Progress &progress_;
  volatile unsigned sum_ = 0;
};

/// What a command hands over: a length and a block.
template <class Length = int>
struct Handed {
  /// Success hands over `room` bytes, or as many as it says, of which `length` count.
  bool check(Call &call, bool success, std::size_t room) {
    if (!success) {
      call.require(data == &untouched_, "a failure hands over nothing");
      return false;
    }
    call.require(data != &untouched_, "success hands over a block");
    if (data == &untouched_) return false;
    call.require(static_cast<std::size_t>(length) <= data_size, "the length is within the block");
    call.require_block(data, room != 0 ? room : static_cast<std::size_t>(length));
    return true;
  }
  Handed() = default;
  Handed(const Handed &) = delete;
  Handed &operator=(const Handed &) = delete;
  ~Handed() {
    if (data != &untouched_) std::free(data);
  }

  Length length = 77;
  unsigned char *data = &untouched_;

 private:
  unsigned char untouched_ = 0;
};

/// A caller's buffer: nothing around it may be written.
class Room {
 public:
  Room(Call &call, std::size_t size) : call_(call), bytes_(size + 2 * margin, mark) {}
  ~Room() {
    const auto intact = [](std::uint8_t byte) { return byte == mark; };
    call_.require(std::all_of(bytes_.begin(), bytes_.begin() + margin, intact) &&
                      std::all_of(bytes_.end() - margin, bytes_.end(), intact),
                  "nothing beside the caller's buffer is written");
  }
  Room(const Room &) = delete;
  Room &operator=(const Room &) = delete;

  unsigned char *data() { return bytes_.data() + margin; }
  std::size_t size() const { return bytes_.size() - 2 * margin; }
  char *text() { return reinterpret_cast<char *>(data()); }
  void require_text() {
    call_.require(std::memchr(data(), 0, size()) != nullptr, "a text ends within its buffer");
  }
  void require_unchanged() {
    call_.require(std::all_of(bytes_.begin(), bytes_.end(), [](auto byte) { return byte == mark; }),
                  "a parameter list is only read");
  }

 private:
  static constexpr std::ptrdiff_t margin = 16;
  static constexpr std::uint8_t mark = 0xA5;

  Call &call_;
  Bytes bytes_;
};

// --- The families ---

void read_inquiry_data(Call &call, const unsigned char *data, int length) {
  dump_inquiry_data(data, length);
  decode_inquiry_data(data, length);
  unsigned char ansi = 0;
  get_ansi_from_inqdata(data, &ansi);
  call.require(ansi <= 7, "the ANSI version has three bits");
  Room revision(call, 5);
  get_revno_from_inqdata(data, revision.text());
  revision.require_text();

  unsigned char type = 0;
  Room id(call, KZDDL_LUN_ID_SIZE);
  if (get_lun_id_from_83buf(data, id.text(), &type) == 0) id.require_text();
  Room naa(call, KZDDL_NAA_TEXT_SIZE);
  unsigned number = 0;
  call.require(get_dev_id_page(data, naa.text(), &number, &number, &number) == 0,
               "get_dev_id_page() returns 0");
}

void inquiry(Call &call) {
  const int evpd = call.random.one_in(2);
  const int page = evpd != 0 ? call.page() : 0;
  Handed handed;
  int result = 0;
  switch (call.random.below(4)) {
    case 0:
      result = do_inquiry_32(&call.path, evpd, page, O_RDONLY, &handed.length, &handed.data);
      break;
    case 1:
      result = do_inquiry_old(&call.path, evpd, page, O_RDONLY, &handed.length, &handed.data,
                              call.random.one_in(2));
      break;
    default:
      result = do_inquiry(&call.path, evpd, page, O_RDONLY, &handed.length, &handed.data);
  }
  if (handed.check(call, result == 0, data_size)) {
    read_inquiry_data(call, handed.data, handed.length);
  }
}

void test_unit_ready(Call &call) {
  do_tur(&call.path);
  do_tur_32(&call.path);
  do_tur_35(&call.path);
}

void read_capacity(Call &call) {
  static constexpr decltype(&do_read_capacity) functions[] = {
      do_read_capacity, do_read_capacity_32, do_read_capacity_35, do_read_capacity_16};
  const auto function = call.pick(functions);
  const std::size_t size = function == do_read_capacity_16 && !call.is_ia64 ? 32 : 8;
  Handed handed;
  const int result = function(&call.path, 0, 0, 0, &handed.length, &handed.data);
  if (!handed.check(call, result == 0, size)) {
    call.require(handed.length == (call.is_ia64 ? 24 : 0), "the length of a failure");
    return;
  }
  call.require(static_cast<std::size_t>(handed.length) == size, "the length of a capacity");
  dump_read_capacity_data(handed.data, handed.length);
  capacity_record record{};
  std::memcpy(&record, handed.data, 8);
  std::memcpy(&record.block_size, handed.data, 4);
  decode_read_capacity_data(&record);
}

void read_capacity_old(Call &call) {
  Handed handed;
  const int result = do_read_capacity_old(&call.path, 0, 0, 0, &handed.length, &handed.data,
                                          call.random.one_in(2));
  handed.check(call, result == 0, 8);
  call.require(handed.length == (result == 0 ? 8 : 24), "the length of a capacity");
}

void convert_mode_page(Call &call, const unsigned char *page, int length) {
  rcr_oper_parm *record = nullptr;
  const int result = do_convert_mode_sense_oper_parm_to_rcr_oper_parm(page, length, &record);
  call.require((result == 0) == (record != nullptr), "a record comes with success alone");
  if (result == 0) {
    do_display_rcv_copy_results_operating_parameters("device", sizeof *record, record);
  }
  std::free(record);
}

void mode_sense(Call &call) {
  const auto lo = static_cast<unsigned>(call.path.dev);
  const auto hi = static_cast<unsigned>(call.path.dev >> 32);
  const int page = call.page() & 0x3F;
  const int control = static_cast<int>(call.random.below(4));
  Handed handed;
  int result = 0;
  switch (call.random.below(5)) {
    case 0:
      result = do_mode_sense_raw1(lo, hi, 0, control, page, 0, &handed.length, &handed.data);
      break;
    case 1:
      result = do_mode_sense_raw1_old(lo, hi, 1, control, page, 0, &handed.length, &handed.data);
      break;
    case 2:
      result = generic_mode_sense_old(&call.path, 0, control, page, &handed.length, &handed.data,
                                      call.random.one_in(2));
      break;
    default:
      result = do_mode_sense_raw(&call.path, 0, control, page, &handed.length, &handed.data);
      call.require(result == 0 || handed.length == 77, "the length of a failure is untouched");
  }
  if (!handed.check(call, result == 0, data_size)) return;
  dump_mode_sense_data(handed.data, handed.length);
  decode_mode_sense_data(handed.data, handed.length);
  Handed pages;
  result = get_mode_page_info(handed.data, handed.length, &pages.data, &pages.length);
  if (pages.check(call, result == 0, 0)) convert_mode_page(call, pages.data, pages.length);
}

void mode_pages(Call &call) {
  Handed pages;
  int conflict = 77;
  const int result =
      do_mode_sense(&call.path, 0, 0, call.page() & 0x3F, &pages.length, &pages.data, &conflict);
  call.require(conflict == 0 || (conflict == 1 && result != 0), "a conflict is told with failure");
  if (pages.check(call, result == 0, 0)) convert_mode_page(call, pages.data, pages.length);
}

void mode_select(Call &call) {
  Room list(call, call.random.below(200));
  const auto select = call.random.one_in(2) ? do_mode_select_raw : do_mode_select_raw_old;
  select(static_cast<unsigned>(call.path.dev), static_cast<unsigned>(call.path.dev >> 32), 1, 0,
         static_cast<unsigned char>(list.size()), list.data());
  list.require_unchanged();
}

void blocks(Call &call) {
  const auto count = static_cast<unsigned>(call.random.below(20));
  const auto lba = static_cast<unsigned>(call.random.below(100));
  const int op = static_cast<int>(call.random.below(3));
  Room data(call, 512 * count);
  int result = 0;
  switch (call.random.below(3)) {
    case 0:
      result = do_diskio_32(call.path.devname, lba, count, data.data(), op);
      break;
    case 1:
      result = do_diskio_35(&call.path, lba, count, data.data(), op);
      break;
    default:
      result = do_diskio(&call.path, lba, count, data.data(), op);
  }
  if (op != KZDDL_DISKIO_READ) data.require_unchanged();
  call.require(
      result == 0 || result == -1 || (result == KZDDL_DISKIO_CONFLICT && op == KZDDL_DISKIO_PROBE),
      "the results of do_diskio()");
  result = do_diskio_chk_rsvn(&call.path);
  call.require(result == 0 || result == -1 || result == KZDDL_DISKIO_CONFLICT,
               "the results of do_diskio_chk_rsvn()");
}

void reservations_in(Call &call) {
  const auto action = static_cast<unsigned>(call.random.below(4));
  pgr_in_data untouched{};
  pgr_in_data *data = &untouched;
  std::uint32_t result = 0;
  switch (call.random.below(3)) {
    case 0:
      result = do_pgr_in_32(call.path.devname, action, &data);
      break;
    case 1:
      result = do_pgr_in_35(&call.path, action, &data);
      break;
    default:
      result = do_pgr_in(&call.path, action, &data);
  }
  call.require(result <= PGR_ERROR, "the results of do_pgr_in()");
  if (result != PGR_OK) {
    call.require(data == nullptr, "a failure hands over null");
    return;
  }
  call.require(data->length <= 65523, "the length of reservations");
  call.require_block(data, data->length + 12);
  std::free(data);
}

void reservations_out(Call &call) {
  pgr_out_param param{};
  const auto action = static_cast<unsigned>(call.random.below(8));
  std::uint32_t result = 0;
  switch (call.random.below(3)) {
    case 0:
      result = do_pgr_out_32(call.path.devname, action, 0, 1, &param);
      break;
    case 1:
      result = do_pgr_out_35(&call.path, action, 0, 1, &param);
      break;
    default:
      result = do_pgr_out(&call.path, action, 0, 1, &param);
  }
  call.require(result <= PGR_ERROR, "the results of do_pgr_out()");
}

void port_groups(Call &call) {
  Handed handed;
  const int result = call.random.one_in(2) ? do_rtpg(&call.path, &handed.data)
                                           : do_report_target_port_group(&call.path, &handed.data);
  if (!handed.check(call, result == 0, data_size)) return;
  for (const int group : {0, 1, 2, 0xFFFF}) {
    const int state = get_owner_state(handed.data, group);
    call.require(state >= -1 && state <= 15, "a state has four bits");
    const int preferred = get_pref_state(handed.data, group);
    call.require(preferred == -1 || preferred == 0 || preferred == 0x80, "one bit of preference");
    call.require((state == -1) == (preferred == -1), "both decoders find the same groups");
    const int other = get_other_pref_state(handed.data, group);
    call.require(other == 0 || other == 0x80, "one bit of another's preference");
  }
}

void set_port_groups(Call &call) {
  Room list(call, 4 + 4 * call.random.below(4));
  do_stpg(&call.path, list.data(), static_cast<std::uint32_t>(list.size()));
  list.require_unchanged();
}

void copy_results(Call &call) {
  static constexpr int allocation_lengths[] = {0, 4, 255, 0xFFFFFF};
  Handed<std::uint32_t> handed;
  const int result =
      do_rcv_copy_results(&call.path, 0, static_cast<unsigned char>(call.random.below(5)), 0,
                          call.pick(allocation_lengths), 0, &handed.length, &handed.data);
  if (!handed.check(call, result == 0, 0)) {
    call.require(handed.length == 255, "the length of a failure");
    return;
  }
  rcr_oper_parm *record = nullptr;
  const auto length = static_cast<int>(handed.length);
  call.require((do_convert_to_rcr_oper_parm(handed.data, length, &record) == 0) == (length >= 43),
               "43 bytes make a record");
  if (record != nullptr) {
    do_display_rcv_copy_results_operating_parameters("device", handed.length, record);
  }
  std::free(record);
}

void operating_parameters(Call &call) {
  rcr_oper_parm untouched{};
  rcr_oper_parm *record = &untouched;
  if (do_operating_parameters(&call.path, &record) != 0) {
    call.require(record == nullptr || record == &untouched, "a failure hands over nothing");
    return;
  }
  call.require_block(record, sizeof *record);
  do_display_rcv_copy_results_operating_parameters("device", sizeof *record, record);
  std::free(record);
}

void identity(Call &call) {
  Room id(call, KZDDL_LUN_ID_SIZE);
  unsigned char type = 0;
  const int page = call.random.one_in(2) ? 0x83 : 0;
  const int result = get_lun_id(&call.path, page, id.text(), &type, "fallback");
  call.require(result == 0 || page == 0, "page 0x83 always gives a name");
  if (result == 0) id.require_text();
  Room cabinet(call, KZDDL_CABINET_ID_SIZE);
  if (get_cabinet_id(&call.path, cabinet.text()) == 0) cabinet.require_text();
}

void require_label(Call &call, const disk_geom &geom) {
  call.require(geom.heads != 0 && geom.sectors_per_track != 0 && geom.cylinders <= 0xFFFF,
               "a geometry fits a label");
}

void geometry(Call &call) {
  disk_geom geom{};
  const int result = call.random.one_in(2) ? get_geometry_info(call.path.devname, &geom)
                                           : gen_get_geometry_info(call.path, &geom);
  if (result == 0) require_label(call, geom);
}

void cached_geometry(Call &call) {
  disk_geom *cached = nullptr;
  if (ddl_get_geometry(disk_name, &cached, KZDDL_GEOMETRY_REFRESH) == 0) {
    require_label(call, *cached);
  } else {
    call.require(cached == nullptr && disk_geom_headp == nullptr, "a failure caches nothing");
  }
  dip disk{};
  std::strcpy(disk.path, disk_name);
  char *const untouched[1] = {};
  char **list = const_cast<char **>(untouched);
  if (get_dynamic_geometry(disk, KZDDL_PROP_GEOMETRY, &list) != 0) {
    call.require(list == untouched, "a failure hands over nothing");
    return;
  }
  call.require(list != nullptr && list[0] != nullptr, "the attribute is a list of one pair");
  nv_free(list);
}

void any_command(Call &call) {
  static constexpr std::uint8_t opcodes[] = {0x00, 0x03, 0x12, 0x1A, 0x25, 0x28,
                                             0x5E, 0x9E, 0xA0, 0xA3, 0xC1};
  unsigned char cdb[16] = {call.pick(opcodes), call.random.byte(), call.random.byte()};
  Room data(call, call.random.below(600));
  Room sense(call, call.random.below(40));
  uscsi_cmd request{.uscsi_flags = call.random.one_in(4) ? 0 : USCSI_READ,
                    .uscsi_cdb = cdb,
                    .uscsi_bufaddr = data.data(),
                    .uscsi_buflen = static_cast<std::uint32_t>(data.size()),
                    .uscsi_cdblen = static_cast<std::uint8_t>(sim::cdb_length(cdb[0])),
                    .uscsi_rqlen = static_cast<std::uint8_t>(sense.size()),
                    .uscsi_rqbuf = sense.data()};
  do_scsi(&call.path, &request);
  call.require(request.uscsi_rqresid <= sense.size(), "the sense data are within their buffer");
  if (request.uscsi_flags == 0 && !call.is_ia64) data.require_unchanged();
}

constexpr struct {
  const char *name;
  void (*run)(Call &call);
} families[] = {
    {"INQUIRY", inquiry},
    {"TEST UNIT READY", test_unit_ready},
    {"READ CAPACITY", read_capacity},
    {"READ CAPACITY, legacy", read_capacity_old},
    {"MODE SENSE", mode_sense},
    {"mode pages", mode_pages},
    {"MODE SELECT", mode_select},
    {"READ and WRITE", blocks},
    {"PERSISTENT RESERVE IN", reservations_in},
    {"PERSISTENT RESERVE OUT", reservations_out},
    {"REPORT TARGET PORT GROUPS", port_groups},
    {"SET TARGET PORT GROUPS", set_port_groups},
    {"RECEIVE COPY RESULTS", copy_results},
    {"operating parameters", operating_parameters},
    {"identity", identity},
    {"geometry", geometry},
    {"cached geometry", cached_geometry},
    {"any command", any_command},
};

// --- The devices ---

class HostileDevices : public WayTest {
 protected:
  HostileDevices() {
    const char *const disks[] = {disk_name, nullptr};
    const char *const names[] = {multipath_name, nullptr};
    init_property_list(nullptr);
    set_property(KZDDL_PROP_DISK, disks);
    set_property(KZDDL_PROP_JOX_DEVICE, names);
    set_asso(KZDDL_PROP_DISK, disk_name, KZDDL_PROP_JOX_DEVICE, multipath_name);
  }

  /// A device behind every node: mostly one that spoils a disk's answers.
  void use_device(std::uint64_t seed) {
    std::shared_ptr<sim::Device> disk;
    if (seed % 8 != 0) {
      disk = std::make_shared<sim::Disk>(sim::DiskSpec{
          .serial = "SN-1",
          .naa = {0x60, 0x0A, 0x0B, 0x80, 1, 2, 3, 4},
          .blocks = seed % 3 == 0 ? 8'589'934'592u : 2'097'152u,
          .groups = {{.id = 1, .preferred = true, .ports = {1}}, {.id = 2, .ports = {2}}}});
    }
    const auto device = std::make_shared<sim::Hostile>(seed, std::move(disk));
    dev_t next = number;
    for (const std::string &name :
         {std::string(node), std::string(sim::block_directory) + "/" + multipath_name,
          std::string(sim::raw_directory) + "/" + multipath_name}) {
      host.add({.name = name, .number = next++, .device = device});
    }
  }

  void meet(std::uint64_t seed, Progress &progress) {
    progress.seed = seed;
    use_device(seed);
    sim::Random seeds(~seed);
    for (const auto &family : families) {
      progress.family = family.name;
      Call call(path, seeds.next(), GetParam().ia64, progress);
      {
        const CountMalloc watch;
        family.run(call);
      }
      const long cached = family.run == cached_geometry && disk_geom_headp != nullptr ? 1 : 0;
      call.require(live_blocks() == cached, "no block is lost");
      call.require(host.open_descriptors() == 0, "no node is left open");
      progress.commands += host.take_requests().size();
    }
  }

  /// Meets the devices in a process of its own, without what the library prints.
  [[noreturn]] void meet_all(std::uint64_t first, std::uint64_t count, Progress &progress) {
    stdout = stderr = std::fopen("/dev/null", "w");
    for (std::uint64_t seed = first; seed < first + count; ++seed)
      meet(seed, progress);
    std::exit(0);  // a leak is looked for on the way out
  }
};
INSTANTIATE_TEST_SUITE_P(, HostileDevices, every_way, way_name);

TEST_P(HostileDevices, HarmNoFamily) {
  const std::uint64_t first = setting("KZDDL_HOSTILE_SEED", 1);
  const std::uint64_t count = setting("KZDDL_HOSTILE_DEVICES", 300);
  void *const shared =
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  Progress &progress = *new (shared) Progress{};

  const pid_t process = fork();
  ASSERT_GE(process, 0);
  if (process == 0) meet_all(first, count, progress);
  int status = 0;
  ASSERT_EQ(waitpid(process, &status, 0), process);
  EXPECT_EQ(status, 0) << "the device with seed " << progress.seed << " ended the process in "
                       << progress.family;
  EXPECT_EQ(progress.failures, 0) << "first with seed " << progress.failed_seed << " in "
                                  << progress.failed_family << ": " << progress.failed;
  EXPECT_GT(progress.commands, 20 * count) << "the library gives up early";
  EXPECT_GT(progress.blocks, 3 * count) << "the devices lie too much to get deep";
  RecordProperty("commands", std::to_string(progress.commands));
  RecordProperty("blocks", std::to_string(progress.blocks));
  munmap(shared, sizeof(Progress));
}

TEST(Hostile, TheSeedDecides) {
  const Bytes cdb = {0x12, 0, 0, 0, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  const auto answers = [&cdb](std::uint64_t seed) {
    sim::Hostile device(seed, std::make_shared<sim::Disk>(sim::DiskSpec{}));
    Bytes all;
    for (int i = 0; i < 50; ++i) {
      const Reply reply = device.execute({.cdb = cdb}, {});
      all.push_back(reply.status);
      all.insert(all.end(), reply.data.begin(), reply.data.end());
      all.insert(all.end(), reply.sense.begin(), reply.sense.end());
    }
    return all;
  };
  EXPECT_EQ(answers(7), answers(7));
  EXPECT_NE(answers(7), answers(8));
}

}  // namespace
}  // namespace kzddl_test
