// Threads that are cancelled at random while they use all of the library: none may leave a lock, a
// descriptor or a block behind. What the library calls of its host asks, each time, for trouble.
#include <dirent.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "sim/array.h"
#include "support/disk_test.h"
#include "support/failing_malloc.h"
#include "support/log_capture.h"
#include "support/property_test.h"
#include "support/setting.h"
#include "support/stress.h"

/// pthread_cancel loads a library for good, and the loader keeps a block for it where
/// LeakSanitizer does not look.
extern "C" const char *__lsan_default_suppressions() { return "leak:_dl_map_object_deps"; }

namespace kzddl_test {
namespace {

constexpr char disk[] = "/dev/sda";

std::int32_t answer(dip /*disk*/, const char *attr, char ***list) {
  pthread_testcancel();
  return answer_with(attr, "x,y", list);
}

ddl_prop_table prop_ops = {[](const char *) { return pthread_testcancel(), std::int32_t{0}; },
                           [](std::int32_t) { return pthread_testcancel(), std::int32_t{8}; },
                           [](std::int32_t) { return pthread_testcancel(), std::int32_t{8}; }};

ddl_cache_table cache_ops = {
    [] { return pthread_testcancel(), std::int32_t{0}; },
    [](std::int32_t, std::int32_t, std::int32_t, void *) { return pthread_testcancel(), 0; },
    [](std::int32_t, std::int32_t, std::int32_t *, void **) { return pthread_testcancel(), -1; }};

void release(int n, const char **const &array) {
  if (n > 0) std::free(array);
}

void read() {
  const char **array = nullptr;
  release(get_property("P", &array), array);
}

void write() {
  // Not on the stack, where AddressSanitizer marks its surroundings until the function returns: the
  // sleep is a cancellation point.
  static const char *const one[] = {"1", nullptr};
  set_property("P", one);
  set_property("Q", one);
  set_asso("P", "1", "Q", "1");
  create_property("R", 0, 0, 0);
  delete_property("P", one);
  usleep(100);  // readers are let in without the lock again
}

void fetch() {
  const char **names = nullptr;
  const char **values = nullptr;
  release(get_asso_val("DISK", disk, "STATE", &values), values);
  const int n = get_asso("DISK", disk, &names, &values);
  release(n, names);
  release(n, values);
}

void print() { print_property_list(); }

void command() {
  odh path{};
  std::strcpy(path.devname, disk);
  path.dev = path.blkdev = find_device_number(disk);
  static std::atomic<unsigned> turn = 0;
  kzscsi_set_version(++turn % 2 != 0 ? "32" : "35");
  for (const Reader &reader : readers) {
    int length = 0;
    unsigned char *data = nullptr;
    reader.run(&path, &length, &data);
    std::free(data);
  }
  int length = 0;
  unsigned char *data = nullptr;
  if (do_inquiry(&path, 0, 0, 0, &length, &data) == 0) std::free(data);
  char text[KZDDL_LUN_ID_SIZE];
  unsigned char type = 0;
  get_lun_id(&path, 0, text, &type, "none");
  get_cabinet_id(&path, text);
}

void geometry() {
  disk_geom *cached = nullptr;
  ddl_get_geometry(disk, &cached, KZDDL_GEOMETRY_REFRESH);
}

using Work = void (*)();
constexpr Work works[] = {read, read, read, write, write, fetch, fetch, print, command, geometry};

/// `work`, an entry of the list, over and over in a thread of its own.
pthread_t start(const Work &work) {
  pthread_t thread;
  const auto run = [](void *argument) -> void * {
    const auto repeated = *static_cast<const Work *>(argument);
    while (true) {
      repeated();
      pthread_testcancel();
    }
  };
  EXPECT_EQ(pthread_create(&thread, nullptr, run, const_cast<Work *>(&work)), 0);
  return thread;
}

std::ptrdiff_t open_files() {
  DIR *directory = opendir("/proc/self/fd");
  std::ptrdiff_t n = 0;
  while (readdir(directory) != nullptr)
    ++n;
  closedir(directory);
  return n;
}

TEST(Cancellation, LeavesNothingBehind) {
  const std::uint64_t seconds = setting("KZDDL_STRESS_SECONDS", 2);
  alarm(static_cast<unsigned>(seconds) + 120);  // a lock that is never released
  const LogCapture log;
  auto &host = sim::Host::instance();
  sim::install(host, sim::demo_array());
  host.stop_recording();
  host.inject(disk, {.times = -1, .before = [] { usleep(100); }});
  set_scsi_version_lock_needed();
  ddl_cache_ops = &cache_ops;
  const std::ptrdiff_t files = open_files();
  {
    const CountMalloc blocks;
    init_property_list(&prop_ops);
    relate("DISK", disk, "JOX_DEVICE", "disk0");
    relate("DISK", disk, "DYNAMIC", "STATE");
    relate("DISK", disk, "LIBNAME", "lib");
    relate("LIBNAME", "lib", "GET_DYNAMIC_ATTR_ENTRY", address(answer));
    Handler handler;
    handler.record[KZDDL_HANDLER_FLAGS] = KZDDL_HANDLER_SERIALISE;
    relate("LIBNAME", "lib", "GET_DLL_HANDLER", address(handler.record));

    std::array<pthread_t, std::size(works)> threads;
    std::transform(std::begin(works), std::end(works), threads.begin(), start);
    std::mt19937 random(1);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) {
      usleep(500);
      const std::size_t which = random() % threads.size();
      pthread_cancel(threads[which]);
      pthread_join(threads[which], nullptr);
      threads[which] = start(works[which]);
    }
    for (const pthread_t thread : threads)
      pthread_cancel(thread);
    for (const pthread_t thread : threads)
      pthread_join(thread, nullptr);

    for (const Work work : works)
      work();
    EXPECT_EQ(linked("DISK", disk, "STATE"), (Strings{"y", "x"}));
    init_property_list(&prop_ops);
    std::free(std::exchange(disk_geom_headp, nullptr));
    EXPECT_GT(blocks.count(), 1000);
  }
  EXPECT_EQ(live_blocks(), 1) << "the list of properties";
  EXPECT_EQ(host.open_descriptors(), 0);
  EXPECT_EQ(open_files(), files);
}

}  // namespace
}  // namespace kzddl_test
