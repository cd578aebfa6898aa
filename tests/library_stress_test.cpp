// All of the library at once: commands by both routes while the version changes under them, the
// database, dynamic fetches and geometry refreshes, from 8 threads.
#include "sim/array.h"
#include "support/disk_test.h"
#include "support/log_capture.h"
#include "support/property_test.h"
#include "support/stress.h"

namespace {

using namespace kzddl_test;

const std::pair<std::string, std::string> disks[] = {
    {"/dev/sda", "disk0"}, {"/dev/sdb", "disk1"}, {"/dev/sdj", "disk1"}};

void send_command(const std::string &disk, std::size_t which) {
  odh path{};
  std::strcpy(path.devname, disk.c_str());
  path.dev = path.blkdev = find_device_number(disk.c_str());
  if (which == std::size(readers)) {
    char id[KZDDL_LUN_ID_SIZE];
    unsigned char type = 0;
    EXPECT_EQ(get_lun_id(&path, 0, id, &type, "none"), 0);
    EXPECT_STRNE(id, "none");
    return;
  }
  int length = 0;
  unsigned char *data = nullptr;
  EXPECT_EQ(readers[which].run(&path, &length, &data), 0) << readers[which].name;
  EXPECT_NE(data, nullptr);
  std::free(data);
}

void use_database(const std::string &disk, std::mt19937 &random) {
  const std::string value = std::to_string(random() % 8);
  switch (random() % 4) {
    case 0:
      set("NOTE", {value});
      associate("DISK", disk, "NOTE", value);  // unless it has gone again
      break;
    case 1:
      dissociate("DISK", disk, "NOTE", value);
      break;
    case 2:
      erase("NOTE", {value});
      break;
    default: {
      const char **values = nullptr;
      if (get_asso_val("DISK", disk.c_str(), "NOTE", &values) > 0) std::free(values);
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
    relate("LIBNAME", "geometry", "GET_DYNAMIC_ATTR_ENTRY", address(get_dynamic_geometry));
    for (const auto &[disk, multipath_name] : disks) {
      relate("DISK", disk, "JOX_DEVICE", multipath_name);
      relate("DISK", disk, "DYNAMIC", KZDDL_PROP_GEOMETRY);
      relate("DISK", disk, "LIBNAME", "geometry");
    }
  }
};

TEST_F(LibraryStress, EverythingAtOnce) {
  const LogCapture log;
  run_threads(8, [](std::mt19937 &random, unsigned number) {
    const std::string &disk = disks[random() % std::size(disks)].first;
    disk_geom *geometry = nullptr;
    switch (number) {
      case 0:
        kzscsi_set_version(random() % 2 != 0 ? "32" : "35");
        return std::this_thread::yield();
      case 1:
        EXPECT_EQ(ddl_get_geometry(disk.c_str(), &geometry, random() % 2), 0);
        break;
      case 2:
      case 3:
        EXPECT_EQ(linked("DISK", disk, KZDDL_PROP_GEOMETRY).size(), 1u);
        break;
      case 4:
      case 5:
        return use_database(disk, random);
      default:
        send_command(disk, random() % (std::size(readers) + 1));
    }
  });
  EXPECT_EQ(sim::Host::instance().open_descriptors(), 0);
  print_property_list();
}

TEST_F(LibraryStress, AUnitMayLoseItsNameWhileItsGeometryIsAsked) {
  run_threads(3, [](std::mt19937 &, unsigned number) {
    const auto &[disk, multipath_name] = disks[0];
    disk_geom *geometry = nullptr;
    if (number != 0) {
      ddl_get_geometry(disk.c_str(), &geometry, 0);
    } else {
      erase("JOX_DEVICE", {multipath_name});
      relate("DISK", disk, "JOX_DEVICE", multipath_name);
    }
  });
}

TEST(StressDeathTest, ADeadlockWritesEveryStackAndEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto deadlock = [] {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&mutex);
    run_threads(
        2, [&mutex](std::mt19937 &, unsigned) { pthread_mutex_lock(&mutex); },
        std::chrono::seconds(0));
  };
#ifdef __SANITIZE_THREAD__  // which holds signals back from a thread that waits
  EXPECT_DEATH(deadlock(), "");
#else
  EXPECT_DEATH(deadlock(), "libc");
#endif
}

}  // namespace
