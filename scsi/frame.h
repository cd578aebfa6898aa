// The frame of every command family: which variant runs, and what its result means.
//
// A family reads as one variant for both generations:
//
//   int inquiry(Generation generation, ...) {
//     if (ddl_is_arch_ia64() == 1) return inquiry_old(...);   // the legacy twin
//     const Route route(generation, *path, flags);            // opens the node, if any
//     if (!route) return errno;
//     Buffer data;                                            // allocated after the open
//     if (const int error = read_data(route, cdb, size, data); error != 0) return error;
//     ... hand the data over ...
//   }
//
// Everything made on the way is released by its owner, and no release changes a result.
#pragma once

#include <cerrno>

#include "kzddl/kzscsilib.h"
#include "property/guards.h"
#include "scsi/route.h"
#include "scsi/version.h"

namespace kzddl {

/// Runs `variant` for the generation in force.
template <class Variant>
auto dispatch(const Variant &variant) {
  return variant(current_generation());
}

/// The same with the version mutex held across the whole command, if the host asks for it.
template <class Variant>
auto dispatch_locked(const Variant &variant) {
  const MutexGuard version(is_scsi_version_lock_needed() != 0 ? version_mutex() : Mutex{});
  return variant(current_generation());
}

/// The result that most families give for an outcome: 0, errno for a failed call, and the
/// negated value for a status that the device or the driver reported.
inline int command_result(int outcome) {
  if (outcome == 0) return 0;
  return outcome < 0 ? errno : -outcome;
}

/// Sends a command and fills `data`, made of `size` zero bytes, with what the device answers.
inline int read_data(const Route &route, std::span<const std::uint8_t> cdb, std::uint32_t size,
                     Buffer &data) {
  data = zeroed_buffer(size);
  if (data == nullptr) return ENOMEM;
  SgRequest request(cdb, Transfer::from_device(data.get(), size));
  return command_result(route.outcome(request));
}

/// The same by the legacy request: `out_length` bytes come back in its reply.
inline int read_legacy(const Route &route, std::span<const std::uint8_t> cdb,
                       std::uint32_t out_length, LegacyRequest &request) {
  if (!request) return ENOMEM;
  request.prepare(cdb, 0, out_length);
  return command_result(route.send(request));
}

}  // namespace kzddl
