// The process-wide locks, and the end of a process in which one fails.
#pragma once

#include <pthread.h>

#include <cstdint>

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

}  // namespace kzddl
