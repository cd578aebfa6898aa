// The frame of every command family: which variant runs, and what its result means.
//
// A family reads as one variant for both generations:
//
//   int inquiry(Generation generation, const odh &path, ...) {
//     if (ddl_is_arch_ia64() == 1) return inquiry_old(Route(generation, path, flags), ...);
//     const Route route(generation, path, flags);             // opens the node, if any
//     if (!route) return failure();
//     Buffer data;                                            // allocated after the open
//     if (const int error = read_data(route, cdb, size, data); error != 0) return error;
//     ... hand the data over ...
//   }
//
// and its legacy twin as
//
//   int inquiry_old(const Route &route, ...) {
//     if (!route) return failure();
//     LegacyRequest request(size);
//     if (const int error = read_legacy(route, cdb, out_length, request); error != 0) return error;
//     return hand_over(duplicate(request.reply(), reply_size), ...);
//   }
//
// Everything made on the way is released by its owner, and no release changes a result.
#pragma once

#include <cerrno>
#include <cstdint>
#include <span>

#include "base/memory.h"
#include "kzddl/kzscsilib.h"
#include "property/guards.h"
#include "scsi/request.h"
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

/// The result for a call that has just failed: errno, never 0.
inline int failure() { return errno != 0 ? errno : EIO; }

/// The result that most families give for an outcome: 0, errno for a failed call, and the
/// negated value for a status that the device or the driver reported.
inline int command_result(int outcome) {
  if (outcome == 0) return 0;
  return outcome < 0 ? failure() : -outcome;
}

/// Sends a command and fills `data`, made of `size` zero bytes, with what the device answers.
/// The status byte of a command that was sent, whatever its result, goes to `status`, if given.
inline int read_data(const Route &route, std::span<const std::uint8_t> cdb, std::uint32_t size,
                     Buffer &data, std::uint8_t *status = nullptr) {
  data = zeroed_buffer(size);
  if (data == nullptr) return ENOMEM;
  SgRequest request(cdb, Transfer::from_device(data.get(), size));
  const int outcome = route.outcome(request);
  if (status != nullptr) *status = request.header.status;
  return command_result(outcome);
}

/// The same by the legacy request: `out_length` bytes come back in its reply.
inline int read_legacy(const Route &route, std::span<const std::uint8_t> cdb,
                       std::uint32_t out_length, LegacyRequest &request) {
  if (!request) return ENOMEM;
  request.prepare(cdb, 0, out_length);
  return command_result(route.send(request));
}

/// Hands a copy that was made for the caller to it. Without one, memory was short.
inline int hand_over(Buffer copy, unsigned char **to) {
  if (copy == nullptr) return ENOMEM;
  *to = copy.release();
  return 0;
}

}  // namespace kzddl
