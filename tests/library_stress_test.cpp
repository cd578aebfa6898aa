// All of the library at once: commands by both routes while the version changes under them, the
// database, dynamic fetches and geometry refreshes, from 8 threads.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kzddl/kzddl.h"
#include "sim/array.h"
#include "support/log_capture.h"
#include "support/property_test.h"
#include "support/stress.h"

namespace {

using namespace kzddl_test;

const Strings disks = {"/dev/sda", "/dev/sdb", "/dev/sdj"};
const Strings multipath_names = {"disk0", "disk1", "disk1"};

/// `read` hands over a buffer.
template <class Read>
void expect_data(Read read) {
  int length = 0;
  unsigned char *data = nullptr;
  EXPECT_EQ(read(&length, &data), 0);
  EXPECT_NE(data, nullptr);
  std::free(data);
}

void send_command(const std::string &disk, unsigned which) {
  odh path{};
  std::strcpy(path.devname, disk.c_str());
  path.dev = path.blkdev = find_device_number(disk.c_str());
  switch (which) {
    case 0:
      return expect_data(
          [&](int *length, auto **data) { return do_inquiry(&path, 1, 0x83, 0, length, data); });
    case 1:
      return expect_data(
          [&](int *length, auto **data) { return do_read_capacity(&path, 0, 0, 0, length, data); });
    case 2:
      return expect_data([&](int *length, auto **data) {
        return do_mode_sense_raw(&path, 0, 0, 0x3F, length, data);
      });
    case 3:
      return expect_data([&](int * /*length*/, auto **data) { return do_rtpg(&path, data); });
    case 4: {
      pgr_in_data *keys = nullptr;
      EXPECT_EQ(do_pgr_in(&path, 0, &keys), static_cast<unsigned>(PGR_OK));
      return std::free(keys);
    }
    case 5: {
      unsigned char blocks[3 * 512];
      EXPECT_EQ(do_diskio(&path, 8, 3, blocks, KZDDL_DISKIO_READ), 0);
      return;
    }
    default: {
      char id[KZDDL_LUN_ID_SIZE];
      unsigned char type = 0;
      EXPECT_EQ(get_lun_id(&path, 0, id, &type, "none"), 0);
      EXPECT_STRNE(id, "none");
    }
  }
}

void use_database(const std::string &disk, std::mt19937 &random) {
  const std::string value = std::to_string(random() % 8);
  switch (random() % 4) {
    case 0:
      set("NOTE", {value});
      associate("DISK", disk, "NOTE", value);  // unless it has gone again
      break;
    case 1:
      delete_asso("DISK", disk.c_str(), "NOTE", value.c_str());
      break;
    case 2:
      erase("NOTE", {value});
      break;
    default: {
      const char **values = nullptr;
      const int n = get_asso_val("DISK", disk.c_str(), "NOTE", &values);
      if (n > 0) std::free(values);
    }
  }
}

class LibraryStress : public DatabaseTest {
 protected:
  LibraryStress() {
    auto &host = sim::Host::instance();
    sim::install(host, sim::demo_array());
    host.stop_recording();
    set_scsi_version_lock_needed();
    auto *entry = get_dynamic_geometry;
    const std::string address =
        typed(std::string(reinterpret_cast<const char *>(&entry), sizeof entry), 1);
    relate("LIBNAME", "geometry", "GET_DYNAMIC_ATTR_ENTRY", address);
    for (std::size_t i = 0; i < disks.size(); ++i) {
      relate("DISK", disks[i], "JOX_DEVICE", multipath_names[i]);
      relate("DISK", disks[i], "DYNAMIC", KZDDL_PROP_GEOMETRY);
      relate("DISK", disks[i], "LIBNAME", "geometry");
    }
  }
};

TEST_F(LibraryStress, EverythingAtOnce) {
  const LogCapture log;
  run_numbered_threads(8, [](std::mt19937 &random, unsigned number) {
    const std::string &disk = disks[random() % disks.size()];
    switch (number) {
      case 0:
        kzscsi_set_version(random() % 2 != 0 ? "32" : "35");
        std::this_thread::yield();
        break;
      case 1: {
        disk_geom *geometry = nullptr;
        const auto flags = static_cast<std::uint8_t>(random() % 2);
        EXPECT_EQ(ddl_get_geometry(disk.c_str(), &geometry, flags), 0);
        break;
      }
      case 2:
      case 3:
        EXPECT_EQ(linked("DISK", disk, KZDDL_PROP_GEOMETRY).size(), 1u);
        break;
      case 4:
      case 5:
        use_database(disk, random);
        break;
      default:
        send_command(disk, random() % 7);
    }
  });
  EXPECT_EQ(sim::Host::instance().open_descriptors(), 0);
  print_property_list();
}

TEST(WatchdogDeathTest, WritesEveryStackAndEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto deadlock = [] {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    std::vector<std::unique_ptr<Worker>> workers;
    pthread_mutex_lock(&mutex);
    workers.push_back(std::make_unique<Worker>());
    workers[0]->thread = std::thread([&mutex] { pthread_mutex_lock(&mutex); });
    const Watchdog watchdog(workers, std::chrono::seconds(0));
    workers[0]->thread.join();
  };
#ifdef __SANITIZE_THREAD__  // which holds signals back from a thread that waits
  EXPECT_DEATH(deadlock(), "");
#else
  EXPECT_DEATH(deadlock(), "libc");
#endif
}

}  // namespace
