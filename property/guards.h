// The process-wide locks and the guards that hold locks for a scope.
//
// A guard's section is only entered with its lock held: any failure to lock or unlock is
// fatal, reported with the text of the error number.
#pragma once

#include <pthread.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "kzddl/ddlproperty_sys.h"

namespace kzddl {

extern pthread_rwlock_t ddlproperty_generic_lock;
extern pthread_mutex_t ddlproperty_scsi_version_mutex;
extern pthread_mutex_t ddlproperty_geometry_mutex;

/// Nonzero once init_property_list() has initialised the locks above.
extern std::int32_t ddlproperty_lock_initialized;

/// Logs the text of errno and ends the process with exit status 4.
[[noreturn]] void ddlproperty_rwlock_failed();
[[noreturn]] void ddlproperty_mutex_failed();

/// Holds a mutex; one made of null holds nothing.
class MutexGuard {
 public:
  explicit MutexGuard(pthread_mutex_t *mutex) : mutex_(mutex) {
    if (mutex_ != nullptr) require(ddlproperty_mutex_lock(mutex_));
  }
  MutexGuard(const MutexGuard &) = delete;
  MutexGuard &operator=(const MutexGuard &) = delete;
  ~MutexGuard() {
    if (mutex_ != nullptr) require(ddlproperty_mutex_unlock(mutex_));
  }

 private:
  static void require(int result) {
    if (result == 0) return;
    errno = result;
    ddlproperty_mutex_failed();
  }

  pthread_mutex_t *mutex_;
};

/// Holds a reader-writer lock until its scope ends or release() is called; one made of null
/// holds nothing.
class RwGuard {
 public:
  enum class Mode { read, write };

  RwGuard(pthread_rwlock_t *lock, Mode mode) : lock_(lock) {
    if (lock_ == nullptr) return;
    require(mode == Mode::read ? ddlproperty_rd_lock(lock) : ddlproperty_wr_lock(lock));
  }
  RwGuard(const RwGuard &) = delete;
  RwGuard &operator=(const RwGuard &) = delete;
  ~RwGuard() { release(); }

  void release() {
    if (lock_ == nullptr) return;
    require(ddlproperty_rw_unlock(lock_));
    lock_ = nullptr;
  }

 private:
  static void require(int result) {
    if (result == 0) return;
    errno = result;
    ddlproperty_rwlock_failed();
  }

  pthread_rwlock_t *lock_;
};

/// A property's lock and the stored name that gives it its place in the lock order.
struct NamedLock {
  const char *name;
  pthread_rwlock_t *lock;
};

/// Holds the locks of two different properties for writing, the lower name's taken first.
class WritePairGuard {
 public:
  WritePairGuard(const NamedLock &a, const NamedLock &b)
      : lower_((is_lower(a, b) ? a : b).lock, RwGuard::Mode::write),
        higher_((is_lower(a, b) ? b : a).lock, RwGuard::Mode::write) {}

 private:
  static bool is_lower(const NamedLock &a, const NamedLock &b) {
    return std::strcmp(a.name, b.name) < 0;
  }

  RwGuard lower_;
  RwGuard higher_;
};

}  // namespace kzddl
