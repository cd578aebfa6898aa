#include "property/locks.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/cancellation.h"
#include "base/log.h"
#include "kzddl/kzmisc_log.h"

namespace kzddl {

pthread_rwlock_t ddlproperty_generic_lock = PTHREAD_RWLOCK_INITIALIZER;
ReaderSlots ddlproperty_generic_readers;
pthread_mutex_t ddlproperty_scsi_version_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t ddlproperty_geometry_mutex = PTHREAD_MUTEX_INITIALIZER;

std::int32_t ddlproperty_lock_initialized = 0;

void ddlproperty_rwlock_failed() {
  const CancellationPutOff uncancelled;  // the process ends, not the thread
  ddlmsg(log::facility, log::output, "ddlproperty_rwlock_failed: Unexpected rwlock failure: %s\n",
         std::strerror(errno));
  std::exit(4);
}

void ddlproperty_mutex_failed() {
  const CancellationPutOff uncancelled;  // the process ends, not the thread
  ddlmsg(log::facility, log::output, "ddlproperty_mutex_failed: Unexpected mutex failure: %s\n",
         std::strerror(errno));
  std::exit(4);
}

}  // namespace kzddl
