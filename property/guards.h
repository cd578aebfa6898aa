// The locks as the library takes them: guards that hold them for a scope.
//
// A guard's section is only entered with its lock held: any failure to lock or unlock is
// fatal, reported with the text of the error number.
//
// The thread is not cancelled while a mutex or a lock for writing is held. Whoever holds a lock
// for reading alone, look-ups above all, comes to no cancellation point, or puts it off itself.
#pragma once

#include <pthread.h>

#include <cerrno>
#include <optional>

#include "base/cancellation.h"
#include "property/lock_order.h"
#include "property/locks.h"
#include "property/reader_slots.h"

namespace kzddl {

/// A mutex, or none.
struct Mutex {
  pthread_mutex_t *mutex = nullptr;
  const char *name = nullptr;
  LockRank rank = LockRank::leaf;

  LockIdentity identity() const { return {mutex, name, rank}; }
};

inline Mutex version_mutex() { return {&ddlproperty_scsi_version_mutex, "the version mutex"}; }
inline Mutex geometry_mutex() { return {&ddlproperty_geometry_mutex, "the geometry mutex"}; }

/// Holds a mutex, if any, until its scope ends.
class MutexGuard {
 public:
  explicit MutexGuard(const Mutex &mutex) : mutex_(mutex) {
    if (mutex_.mutex == nullptr) return;
    uncancelled_.emplace();
    check_order(mutex_.identity());
    require(pthread_mutex_lock(mutex_.mutex));
  }
  MutexGuard(const MutexGuard &) = delete;
  MutexGuard &operator=(const MutexGuard &) = delete;
  ~MutexGuard() {
    if (mutex_.mutex == nullptr) return;
    require(pthread_mutex_unlock(mutex_.mutex));
    forget_lock(mutex_.identity());
  }

 private:
  static void require(int result) {
    if (result == 0) return;
    errno = result;
    ddlproperty_mutex_failed();
  }

  Mutex mutex_;
  std::optional<CancellationPutOff> uncancelled_;
};

/// A reader-writer lock of the database, or none.
struct RwLock {
  pthread_rwlock_t *lock = nullptr;
  ReaderSlots *readers = nullptr;
  const char *name = nullptr;  ///< a property's as it is stored: its place in the order
  LockRank rank = LockRank::property;

  LockIdentity identity() const { return {lock, name, rank}; }
};

inline RwLock generic_lock() {
  return {&ddlproperty_generic_lock, &ddlproperty_generic_readers, "the generic lock",
          LockRank::generic};
}

/// Holds a reader-writer lock, if any, until its scope ends or release() is called.
class RwGuard {
 public:
  enum class Mode { read, write };

  RwGuard(const RwLock &lock, Mode mode) : lock_(lock) {
    if (lock_.lock == nullptr) return;
    check_order(lock_.identity());
    if (mode == Mode::write) {
      uncancelled_.emplace();
      require(pthread_rwlock_wrlock(lock_.lock));
      lock_.readers->shut();
      return;
    }
    slot_ = lock_.readers->enter();
    if (slot_ != nullptr) return;
    require(pthread_rwlock_rdlock(lock_.lock));
    lock_.readers->count_reader();
  }
  RwGuard(const RwGuard &) = delete;
  RwGuard &operator=(const RwGuard &) = delete;
  ~RwGuard() { release(); }

  void release() {
    if (lock_.lock == nullptr) return;
    if (slot_ != nullptr) {
      ReaderSlots::leave(slot_);
    } else {
      require(pthread_rwlock_unlock(lock_.lock));
    }
    forget_lock(lock_.identity());
    lock_.lock = nullptr;
  }

 private:
  static void require(int result) {
    if (result == 0) return;
    errno = result;
    ddlproperty_rwlock_failed();
  }

  RwLock lock_;
  ReaderSlots::Slot *slot_ = nullptr;  ///< where a reader without the lock is announced
  /// To the end of the scope: another lock may be held after this one was released.
  std::optional<CancellationPutOff> uncancelled_;
};

/// Holds the locks of two different properties for writing, taken in their order.
class WritePairGuard {
 public:
  WritePairGuard(const RwLock &a, const RwLock &b)
      : first_(in_order(a, b) ? a : b, RwGuard::Mode::write),
        second_(in_order(a, b) ? b : a, RwGuard::Mode::write) {}

 private:
  static bool in_order(const RwLock &a, const RwLock &b) {
    return is_in_order(a.identity(), b.identity());
  }

  RwGuard first_;
  RwGuard second_;
};

}  // namespace kzddl
