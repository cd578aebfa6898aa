// Lock wrappers: one POSIX call each, and a fatal report where it fails as it never should.
// And the platform's name of a disk's block device.
#include "kzddl/ddlproperty_sys.h"

#include <cstring>

#include "property/locks.h"

using namespace kzddl;

namespace {

int rwlock_result(int result) {
  if (result < 0) ddlproperty_rwlock_failed();
  return result;
}

int mutex_result(int result) {
  if (result < 0) ddlproperty_mutex_failed();
  return result;
}

}  // namespace

int ddlproperty_rd_lock(pthread_rwlock_t *lock) {
  return rwlock_result(pthread_rwlock_rdlock(lock));
}

int ddlproperty_wr_lock(pthread_rwlock_t *lock) {
  return rwlock_result(pthread_rwlock_wrlock(lock));
}

int ddlproperty_rw_unlock(pthread_rwlock_t *lock) {
  return rwlock_result(pthread_rwlock_unlock(lock));
}

int ddlproperty_rwlock_init(pthread_rwlock_t *lock) {
  return rwlock_result(pthread_rwlock_init(lock, nullptr));
}

int ddlproperty_rwlock_free(pthread_rwlock_t *lock) {
  return rwlock_result(pthread_rwlock_destroy(lock));
}

int ddlproperty_generic_rdlock() { return ddlproperty_rd_lock(&ddlproperty_generic_lock); }

int ddlproperty_generic_wrlock() {
  const int result = ddlproperty_wr_lock(&ddlproperty_generic_lock);
  if (result == 0) ddlproperty_generic_readers.shut();
  return result;
}

int ddlproperty_generic_unlock() { return ddlproperty_rw_unlock(&ddlproperty_generic_lock); }

int ddlproperty_mutex_lock(pthread_mutex_t *mutex) {
  return mutex_result(pthread_mutex_lock(mutex));
}

int ddlproperty_mutex_unlock(pthread_mutex_t *mutex) {
  return mutex_result(pthread_mutex_unlock(mutex));
}

int ddlproperty_mutex_init(pthread_mutex_t *mutex) {
  pthread_mutexattr_t attribute;
  mutex_result(pthread_mutexattr_init(&attribute));
  mutex_result(pthread_mutex_init(mutex, &attribute));
  return mutex_result(pthread_mutexattr_destroy(&attribute));
}

int ddlproperty_mutex_free(pthread_mutex_t *mutex) {
  return mutex_result(pthread_mutex_destroy(mutex));
}

int ddlproperty_scsi_version_lock() {
  return ddlproperty_mutex_lock(&ddlproperty_scsi_version_mutex);
}

int ddlproperty_scsi_version_unlock() {
  return ddlproperty_mutex_unlock(&ddlproperty_scsi_version_mutex);
}

int ddlproperty_geometry_lock() { return ddlproperty_mutex_lock(&ddlproperty_geometry_mutex); }

int ddlproperty_geometry_unlock() { return ddlproperty_mutex_unlock(&ddlproperty_geometry_mutex); }

int ddlproperty_asl_lock(pthread_mutex_t *mutex) { return ddlproperty_mutex_lock(mutex); }

int ddlproperty_asl_unlock(pthread_mutex_t *mutex) { return ddlproperty_mutex_unlock(mutex); }

int ddlproperty_lock_init() {
  ddlproperty_rwlock_init(&ddlproperty_generic_lock);
  ddlproperty_mutex_init(&ddlproperty_scsi_version_mutex);
  return ddlproperty_mutex_init(&ddlproperty_geometry_mutex);
}

int ddl_get_blockpath(const char *path, char *out) {
  std::strncpy(out, path, KZDDL_BLOCKPATH_SIZE);
  return 0;
}
