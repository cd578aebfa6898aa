// Every command family, by every way, against devices that lie: nothing crashes, leaks or stays
// open; a success hands over what it says, a failure nothing.
//
// KZDDL_HOSTILE_DEVICES is how many devices each way gets, KZDDL_HOSTILE_SEED the first one's seed.
#include "sim/hostile.h"

#include <malloc.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <utility>

#include "fuzz/replies.h"
#include "kzddl/ddl_name_value_api.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "support/command_table.h"
#include "support/failing_malloc.h"
#include "support/setting.h"

namespace kzddl_test {
namespace {

constexpr int data_size = 255;
constexpr char disk_name[] = "/dev/sdx";  // the "DISK" value
constexpr char multipath_name[] = "d0";

struct {
  std::uint64_t seed;
  const char *family;
  std::uint64_t blocks;  // that were handed over
} progress;

std::string place() { return "seed " + std::to_string(progress.seed) + ", " + progress.family; }

void say_and_die(int signal) {
  dprintf(STDERR_FILENO, "%s ended the process\n", place().c_str());
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void require(bool holds, const char *what) {
  if (holds) return;
  dprintf(STDERR_FILENO, "does not hold: %s\n", what);
  std::abort();
}

/// A block of the library's that has room for `size` bytes; all are read.
void require_block(const void *block, std::size_t size) {
  require(block != nullptr, "success hands over a block");
  if (block == nullptr) return;
  ++progress.blocks;
  require(malloc_usable_size(const_cast<void *>(block)) >= size, "the block is long enough");
  static volatile unsigned sum;
  for (std::size_t i = 0; i < size; ++i)
    sum = sum + static_cast<const unsigned char *>(block)[i];
}

/// One call, with what the device's seed chose for it.
struct Call {
  int page() {
    static constexpr int pages[] = {0, 0x80, 0x83, 3, 4, 8, 0x0A, 0x0E, 0x3F};
    return random.pick(pages);
  }
  int flag() { return static_cast<int>(random.below(2)); }

  odh *path;
  sim::Random random;
  bool is_ia64;
};

/// A caller's buffer: nothing around it may be written.
class Room {
 public:
  explicit Room(std::size_t size) : bytes_(size + 2 * margin, mark) {}
  ~Room() {
    require(std::all_of(bytes_.begin(), bytes_.begin() + margin, is_mark) &&
                std::all_of(bytes_.end() - margin, bytes_.end(), is_mark),
            "nothing beside the caller's buffer is written");
  }

  unsigned char *data() { return bytes_.data() + margin; }
  std::size_t size() const { return bytes_.size() - 2 * margin; }
  char *text() { return reinterpret_cast<char *>(data()); }
  void require_text() {
    require(std::memchr(data(), 0, size()) != nullptr, "a text ends within its buffer");
  }
  void require_unchanged() {
    require(std::all_of(bytes_.begin(), bytes_.end(), is_mark), "a parameter list is only read");
  }

 private:
  static constexpr std::ptrdiff_t margin = 16;
  static constexpr std::uint8_t mark = 0xA5;
  static bool is_mark(std::uint8_t byte) { return byte == mark; }

  Bytes bytes_;
};

// --- The families ---

void mode_pages(Call &call) {
  int length = 0;
  int conflict = 77;
  unsigned char *pages = nullptr;
  const int result = do_mode_sense(call.path, 0, 0, call.page() & 0x3F, &length, &pages, &conflict);
  const kzddl::Buffer owner(pages);
  require(conflict == 0 || (conflict == 1 && result != 0), "a conflict is a failure");
  if (result == 0) fuzz::mode_pages(pages, static_cast<std::size_t>(length));
}

void blocks(Call &call) {
  const auto count = static_cast<unsigned>(call.random.below(20));
  const auto lba = static_cast<unsigned>(call.random.below(100));
  const int op = static_cast<int>(call.random.below(3));
  const auto run = [&](auto command, auto *device) {
    Room data(512 * count);
    const int result = command(device, lba, count, data.data(), op);
    if (op != KZDDL_DISKIO_READ) data.require_unchanged();
    const bool conflict = result == KZDDL_DISKIO_CONFLICT && op == KZDDL_DISKIO_PROBE;
    require(result == 0 || result == -1 || conflict, "the results of do_diskio()");
  };
  run(do_diskio_32, call.path->devname);
  run(do_diskio_35, call.path);
  run(do_diskio, call.path);
  const int result = do_diskio_chk_rsvn(call.path);
  require(result == 0 || result == -1 || result == KZDDL_DISKIO_CONFLICT,
          "the results of do_diskio_chk_rsvn()");
}

void reservations(Call &call) {
  const auto action = static_cast<unsigned>(call.random.below(4));
  const auto in = [action](auto command, auto *device) {
    pgr_in_data untouched{};
    pgr_in_data *data = &untouched;
    const std::uint32_t result = command(device, action, &data);
    const kzddl::Owned<pgr_in_data> owner(data != &untouched ? data : nullptr);
    require(result <= PGR_ERROR && data != &untouched, "the results of do_pgr_in()");
    require((result == PGR_OK) == (data != nullptr), "a failure hands over null");
    if (owner == nullptr) return;
    require(data->length <= 65523, "the length of reservations");
    require_block(data, data->length + 12);
  };
  in(do_pgr_in_32, call.path->devname);
  in(do_pgr_in_35, call.path);
  in(do_pgr_in, call.path);
}

void operating_parameters(Call &call) {
  rcr_oper_parm untouched{};
  rcr_oper_parm *record = &untouched;
  const int result = do_operating_parameters(call.path, &record);
  const kzddl::Owned<rcr_oper_parm> owner(record != &untouched ? record : nullptr);
  require((result == 0) == (owner != nullptr), "success alone hands over a record");
  if (owner == nullptr) return;
  require_block(record, sizeof *record);
  do_display_rcv_copy_results_operating_parameters("device", sizeof *record, record);
}

void identity(Call &call) {
  Room id(KZDDL_LUN_ID_SIZE);
  unsigned char type = 0;
  const int page = call.flag() != 0 ? 0x83 : 0;
  const int result = get_lun_id(call.path, page, id.text(), &type, "fallback");
  require(result == 0 || page == 0, "page 0x83 always gives a name");
  if (result == 0) id.require_text();
  Room cabinet(KZDDL_CABINET_ID_SIZE);
  if (get_cabinet_id(call.path, cabinet.text()) == 0) cabinet.require_text();
}

void require_label(const disk_geom &geom) {
  require(geom.heads != 0 && geom.sectors_per_track != 0 && geom.cylinders <= 0xFFFF,
          "a geometry fits a label");
}

void geometry(Call &call) {
  disk_geom geom{};
  if (get_geometry_info(call.path->devname, &geom) == 0) require_label(geom);
  if (gen_get_geometry_info(*call.path, &geom) == 0) require_label(geom);
}

void cached_geometry(Call &) {
  disk_geom *cached = nullptr;
  if (ddl_get_geometry(disk_name, &cached, KZDDL_GEOMETRY_REFRESH) == 0) {
    require_label(*cached);
  } else {
    require(cached == nullptr && disk_geom_headp == nullptr, "a failure caches nothing");
  }
  dip disk{};
  std::strcpy(disk.path, disk_name);
  char *const untouched[1] = {};
  char **list = const_cast<char **>(untouched);
  const int result = get_dynamic_geometry(disk, KZDDL_PROP_GEOMETRY, &list);
  require((result == 0) == (list != untouched), "success alone hands over a list");
  if (list == untouched) return;
  require(list != nullptr && list[0] != nullptr, "the attribute is a list of one pair");
  nv_free(list);
}

void any_command(Call &call) {
  static constexpr std::uint8_t opcodes[] = {0x00, 0x03, 0x12, 0x1A, 0x25, 0x28,
                                             0x5E, 0x9E, 0xA0, 0xA3, 0xC1};
  unsigned char cdb[16] = {call.random.pick(opcodes), call.random.byte(), call.random.byte()};
  Room data(call.random.below(600));
  Room sense(call.random.below(40));
  uscsi_cmd request{.uscsi_flags = call.random.one_in(4) ? 0 : USCSI_READ,
                    .uscsi_cdb = cdb,
                    .uscsi_bufaddr = data.data(),
                    .uscsi_buflen = static_cast<std::uint32_t>(data.size()),
                    .uscsi_cdblen = static_cast<std::uint8_t>(sim::cdb_length(cdb[0])),
                    .uscsi_rqlen = static_cast<std::uint8_t>(sense.size()),
                    .uscsi_rqbuf = sense.data()};
  do_scsi(call.path, &request);
  require(request.uscsi_rqresid <= sense.size(), "the sense data are within their buffer");
  if (request.uscsi_flags == 0 && !call.is_ia64) data.require_unchanged();
}

constexpr struct {
  const char *name;
  void (*run)(Call &call);
} families[] = {
    {"mode pages", mode_pages},
    {"READ and WRITE", blocks},
    {"PERSISTENT RESERVE IN", reservations},
    {"operating parameters", operating_parameters},
    {"identity", identity},
    {"geometry", geometry},
    {"cached geometry", cached_geometry},
    {"any command", any_command},
};

// --- The devices ---

class HostileDevices : public CommandTable {
 protected:
  HostileDevices() {
    init_property_list(nullptr);
    const char *const disks[] = {disk_name, nullptr};
    const char *const names[] = {multipath_name, nullptr};
    set_property(KZDDL_PROP_DISK, disks);
    set_property(KZDDL_PROP_JOX_DEVICE, names);
    set_asso(KZDDL_PROP_DISK, disk_name, KZDDL_PROP_JOX_DEVICE, multipath_name);
  }

  /// A device behind every node: mostly one that spoils a disk's answers.
  void use_hostile_device(std::uint64_t seed) {
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

  void check_block(const unsigned char *block, int length, std::size_t room) override {
    require(length >= 0 && length <= data_size, "the length is within the block");
    require_block(block, room);
    for (const auto decode : {fuzz::capacity, fuzz::copy_limits, fuzz::identification,
                              fuzz::inquiry, fuzz::mode_pages, fuzz::port_groups}) {
      decode(block, static_cast<std::size_t>(length));
    }
  }

  void check(bool holds, const char *what) override { require(holds, what); }

  template <class Work>
  void run(const char *family, Work work, long cached = 0) {
    progress.family = family;
    const CountMalloc watch;
    work();
    require(live_blocks() == (disk_geom_headp != nullptr ? cached : 0), "no block is lost");
    require(host.open_descriptors() == 0, "no node is left open");
  }

  /// How many commands the device got.
  std::size_t meet(std::uint64_t seed) {
    progress.seed = seed;
    use_hostile_device(seed);
    for (const Command &command : commands())
      run(command.name, command.call);
    sim::Random seeds(~seed);
    for (const auto &family : families) {
      Call call{&path, sim::Random(seeds.next()), GetParam().ia64};
      run(
          family.name, [&] { family.run(call); }, family.run == cached_geometry ? 1 : 0);
    }
    return host.take_requests().size();
  }
};
INSTANTIATE_TEST_SUITE_P(, HostileDevices, every_way, way_name);

TEST_P(HostileDevices, HarmNoFamily) {
  const std::uint64_t first = setting("KZDDL_HOSTILE_SEED", 1);
  const std::uint64_t count = setting("KZDDL_HOSTILE_DEVICES", 150);
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT})
    std::signal(signal, say_and_die);
  // What the library prints goes nowhere.
  std::FILE *const out = std::exchange(stdout, std::fopen("/dev/null", "w"));
  std::FILE *const err = std::exchange(stderr, stdout);
  std::size_t commands = 0;
  for (std::uint64_t seed = first; seed < first + count; ++seed)
    commands += meet(seed);
  stdout = out;
  stderr = err;
  EXPECT_GT(commands, 40 * count) << "the library gives up early";
  EXPECT_GT(progress.blocks, 15 * count) << "the devices lie too much to get deep";
  RecordProperty("commands", std::to_string(commands));
  RecordProperty("blocks", std::to_string(progress.blocks));
}

}  // namespace
}  // namespace kzddl_test
