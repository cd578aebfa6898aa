// Lock wrappers: what excludes what, results passed through, and fatal failures inside.
#include "kzddl/ddlproperty_sys.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <future>

#include "kzddl/kzscsilib.h"

namespace {

/// Destroying this lock fails with this result, and errno EBUSY.
const void *indestructible = nullptr;
int destroy_result = -1;  // as the platform never does; positive numbers are its way

template <class Lock>
int destroy(const char *name, Lock *lock) {
  if (lock != indestructible) {
    return reinterpret_cast<int (*)(Lock *)>(dlsym(RTLD_NEXT, name))(lock);
  }
  errno = EBUSY;
  return destroy_result;
}

}  // namespace

extern "C" int pthread_rwlock_destroy(pthread_rwlock_t *lock) noexcept {
  return destroy("pthread_rwlock_destroy", lock);
}

extern "C" int pthread_mutex_destroy(pthread_mutex_t *mutex) noexcept {
  return destroy("pthread_mutex_destroy", mutex);
}

namespace {

using namespace std::chrono_literals;

/// Whether `lock` can be had by another thread while the caller holds what it holds. Whatever
/// happens, the other thread gets it once `release` has run, and gives it back.
template <class Lock, class Unlock, class Release>
bool another_thread_gets(Lock lock, Unlock unlock, Release release) {
  auto other = std::async(std::launch::async, [&] {
    EXPECT_EQ(lock(), 0);
    EXPECT_EQ(unlock(), 0);
  });
  const bool at_once = other.wait_for(50ms) == std::future_status::ready;
  release();
  other.get();
  return at_once;
}

TEST(Locks, GenericLockSharesReadersAndExcludesWriters) {
  const auto release = [] { EXPECT_EQ(ddlproperty_generic_unlock(), 0); };
  ASSERT_EQ(ddlproperty_lock_init(), 0);
  ASSERT_EQ(ddlproperty_generic_rdlock(), 0);
  EXPECT_TRUE(another_thread_gets(ddlproperty_generic_rdlock, ddlproperty_generic_unlock, release));
  ASSERT_EQ(ddlproperty_generic_rdlock(), 0);
  EXPECT_FALSE(
      another_thread_gets(ddlproperty_generic_wrlock, ddlproperty_generic_unlock, release));
  ASSERT_EQ(ddlproperty_generic_wrlock(), 0);
  EXPECT_FALSE(
      another_thread_gets(ddlproperty_generic_rdlock, ddlproperty_generic_unlock, release));
}

TEST(Locks, MutexesAreApartAndUsableBeforeInitialisation) {
  const auto nothing = [] {};
  ASSERT_EQ(ddlproperty_scsi_version_lock(), 0);
  EXPECT_TRUE(another_thread_gets(ddlproperty_geometry_lock, ddlproperty_geometry_unlock, nothing));
  EXPECT_FALSE(another_thread_gets(ddlproperty_scsi_version_lock, ddlproperty_scsi_version_unlock,
                                   [] { EXPECT_EQ(ddlproperty_scsi_version_unlock(), 0); }));
}

TEST(Locks, OwnLocksAndMutexes) {
  pthread_rwlock_t lock;
  ASSERT_EQ(ddlproperty_rwlock_init(&lock), 0);
  EXPECT_EQ(ddlproperty_rd_lock(&lock), 0);
  EXPECT_EQ(ddlproperty_rd_lock(&lock), 0);
  EXPECT_EQ(ddlproperty_rw_unlock(&lock), 0);
  EXPECT_EQ(ddlproperty_rw_unlock(&lock), 0);
  EXPECT_EQ(ddlproperty_rwlock_free(&lock), 0);

  pthread_mutex_t mutex;
  ASSERT_EQ(ddlproperty_mutex_init(&mutex), 0);
  ASSERT_EQ(ddlproperty_asl_lock(&mutex), 0);
  EXPECT_FALSE(another_thread_gets([&] { return ddlproperty_mutex_lock(&mutex); },
                                   [&] { return ddlproperty_mutex_unlock(&mutex); },
                                   [&] { EXPECT_EQ(ddlproperty_asl_unlock(&mutex), 0); }));
  EXPECT_EQ(ddlproperty_mutex_free(&mutex), 0);
}

TEST(Locks, PositiveErrorNumbersAreReturned) {
  pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  destroy_result = EBUSY;
  indestructible = &lock;
  EXPECT_EQ(ddlproperty_rwlock_free(&lock), EBUSY);
  indestructible = &mutex;
  EXPECT_EQ(ddlproperty_mutex_free(&mutex), EBUSY);
  indestructible = nullptr;
  destroy_result = -1;
}

TEST(LocksDeathTest, NegativeResultsEndTheProcess) {
  pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  indestructible = &lock;
  EXPECT_EXIT(ddlproperty_rwlock_free(&lock), testing::ExitedWithCode(4),
              "^ddlproperty_rwlock_failed: Unexpected rwlock failure: Device or resource busy\n$");
  indestructible = &mutex;
  EXPECT_EXIT(ddlproperty_mutex_free(&mutex), testing::ExitedWithCode(4),
              "^ddlproperty_mutex_failed: Unexpected mutex failure: Device or resource busy\n$");
  indestructible = nullptr;
}

}  // namespace
