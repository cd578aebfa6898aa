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
#include "property/reader_slots.h"

namespace kzddl {

extern pthread_rwlock_t ddlproperty_generic_lock;
extern ReaderSlots ddlproperty_generic_readers;
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

/// A reader-writer lock of the database, or none.
struct RwLock {
  pthread_rwlock_t *lock = nullptr;
  ReaderSlots *readers = nullptr;
};

inline RwLock generic_lock() { return {&ddlproperty_generic_lock, &ddlproperty_generic_readers}; }

/// Holds a reader-writer lock, if any, until its scope ends or release() is called.
class RwGuard {
 public:
  enum class Mode { read, write };

  RwGuard(RwLock lock, Mode mode) : lock_(lock.lock) {
    if (lock_ == nullptr) return;
    if (mode == Mode::write) {
      require(ddlproperty_wr_lock(lock_));
      lock.readers->shut();
      return;
    }
    slot_ = lock.readers->enter();
    if (slot_ != nullptr) return;
    require(ddlproperty_rd_lock(lock_));
    lock.readers->count_reader();
  }
  RwGuard(const RwGuard &) = delete;
  RwGuard &operator=(const RwGuard &) = delete;
  ~RwGuard() { release(); }

  void release() {
    if (slot_ != nullptr) {
      ReaderSlots::leave(slot_);
    } else if (lock_ != nullptr) {
      require(ddlproperty_rw_unlock(lock_));
    }
    slot_ = nullptr;
    lock_ = nullptr;
  }

 private:
  static void require(int result) {
    if (result == 0) return;
    errno = result;
    ddlproperty_rwlock_failed();
  }

  pthread_rwlock_t *lock_;
  ReaderSlots::Slot *slot_ = nullptr;  ///< where a reader without the lock is announced
};

/// A property's lock and the stored name that gives it its place in the lock order.
struct NamedLock {
  const char *name;
  RwLock lock;
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
