// Interface version, platform probes, and the default cache hooks.
#include "kzddl/kzscsilib.h"

#include <sys/utsname.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/cancellation.h"
#include "property/guards.h"
#include "scsi/version.h"

namespace {

constexpr char default_version[] = "35";

// Probe caches: -1 not yet probed, else the answer of ddl_is_arch_ia64 and of ddl_is_linux_64.
// Threads that probe at once store the same answer.
constinit std::atomic<int> kzscsi_use_sgio = -1;
constinit std::atomic<int> is_lnx_64 = -1;

std::int32_t ddl_get_thread_id() { return 0; }

std::int32_t ddl_add_cache(std::int32_t /*thread*/, std::int32_t /*kind*/, std::int32_t /*length*/,
                           void * /*data*/) {
  return 0;
}

std::int32_t thr_find_cache(std::int32_t /*thread*/, std::int32_t /*kind*/,
                            std::int32_t * /*length*/, void ** /*data*/) {
  return -1;
}

struct CloseFile {
  void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

bool starts_with(const char *text, const char *prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

/// True for a cpuinfo line "arch : IA-64", with one blank or more before the colon.
bool names_ia64(char *line) {
  char *rest = nullptr;
  const char *key = strtok_r(line, ":", &rest);
  if (key == nullptr || !starts_with(key, "arch ")) return false;
  const char *value = strtok_r(nullptr, ":, ", &rest);
  return value != nullptr && starts_with(value, "IA-64");
}

}  // namespace

const char *scsi_version = default_version;
std::int32_t scsi_version_lock_needed = 0;

ddl_cache_table ddl_cache_def_ops = {ddl_get_thread_id, ddl_add_cache, thr_find_cache};
ddl_cache_table *ddl_cache_ops = &ddl_cache_def_ops;

void kzscsi_set_version(const char *version) {
  const kzddl::MutexGuard guard(kzddl::version_mutex());
  std::atomic_ref(scsi_version)
      .store(version != nullptr ? version : default_version, std::memory_order_release);
}

void set_scsi_version_lock_needed() {
  std::atomic_ref(scsi_version_lock_needed).store(1, std::memory_order_relaxed);
}

void reset_scsi_lock_needed() {
  std::atomic_ref(scsi_version_lock_needed).store(0, std::memory_order_relaxed);
}

int is_scsi_version_lock_needed() {
  return std::atomic_ref(scsi_version_lock_needed).load(std::memory_order_relaxed);
}

kzddl::Generation kzddl::current_generation() {
  const char *version = std::atomic_ref(scsi_version).load(std::memory_order_acquire);
  return std::strcmp(version, "32") == 0 ? Generation::direct : Generation::indirect;
}

int ddl_is_arch_ia64() {
  const int known = kzscsi_use_sgio.load(std::memory_order_relaxed);
  if (known != -1) return known;

  const kzddl::CancellationPutOff uncancelled;
  // Stored before the probe: a file that cannot be opened is not tried again.
  kzscsi_use_sgio.store(0, std::memory_order_relaxed);
  const File cpuinfo(std::fopen("/proc/cpuinfo", "r"));
  if (cpuinfo == nullptr) return 0;
  std::array<char, 80> line;
  while (std::fgets(line.data(), line.size(), cpuinfo.get()) != nullptr) {
    if (!names_ia64(line.data())) continue;
    kzscsi_use_sgio.store(1, std::memory_order_relaxed);
    break;
  }
  return kzscsi_use_sgio.load(std::memory_order_relaxed);
}

int ddl_is_linux_64() {
  const int known = is_lnx_64.load(std::memory_order_relaxed);
  if (known != -1) return known;

  int answer = 0;
  utsname system{};
  if (uname(&system) == 0) {
    for (const char *machine : {"x86_64", "ia64", "ppc64"}) {
      if (std::strcmp(system.machine, machine) == 0) answer = 1;
    }
  }
  is_lnx_64.store(answer, std::memory_order_relaxed);
  return answer;
}

int is_driver_configured(const char *name, dev_t *majors) {
  const kzddl::CancellationPutOff uncancelled;
  const File devices(std::fopen("/proc/devices", "r"));
  if (devices == nullptr) return -1;

  std::array<char, 128> line;
  do {
    if (std::fgets(line.data(), line.size(), devices.get()) == nullptr) return -1;
  } while (!starts_with(line.data(), "Block devices:"));

  int count = 0;
  int major = 0;
  std::array<char, 128> driver;
  while (std::fscanf(devices.get(), "%d %127s", &major, driver.data()) == 2) {
    if (std::strcmp(driver.data(), name) == 0) majors[count++] = static_cast<dev_t>(major);
  }
  return count > 0 ? count : -1;
}

void get_ansi_from_inqdata(const unsigned char *inq, unsigned char *ansi) { *ansi = inq[2] & 0x07; }

int get_metanode_ctlrs() { return -1; }
