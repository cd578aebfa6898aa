// SET TARGET PORT GROUPS: frames the caller's parameter list and sends it once.
#include "kzddl/kzstpg.h"

#include "base/bytes.h"
#include "scsi/frame.h"

using namespace kzddl;

namespace {

constexpr OpenFlags flags{.direct = O_RDONLY, .indirect = 0};

Cdb<12> stpg_cdb(std::uint32_t length) {
  constexpr std::uint8_t set_target_port_groups = 0x0A;  // service action
  Cdb<12> cdb{opcode::maintenance_out, set_target_port_groups};
  store_be32(&cdb[6], length);
  return cdb;
}

int do_stpg_old(const Route &route, const unsigned char *list, std::uint32_t length) {
  if (!route) return failure();
  const Cdb<12> cdb = stpg_cdb(length);
  LegacyRequest request(std::uint64_t{LegacyRequest::header_size} + cdb.size() + length);
  if (!request) return ENOMEM;
  request.prepare(cdb, length, 0);
  copy_bytes(request.sent(), list, length);
  return command_result(route.send(request));
}

int stpg(Generation generation, const odh &path, const unsigned char *list, std::uint32_t length) {
  if (ddl_is_arch_ia64() == 1) return do_stpg_old(Route(generation, path, flags), list, length);

  const Route route(generation, path, flags);
  if (!route) return failure();
  const Cdb<12> cdb = stpg_cdb(length);
  SgRequest request(cdb, Transfer::to_device(list, length));
  const int outcome = route.outcome(request);
  // The indirect variant hands its outcome on as it is; callers test for nonzero.
  return generation == Generation::indirect ? outcome : command_result(outcome);
}

}  // namespace

int do_stpg(odh *path, unsigned char *list, std::uint32_t length) {
  return dispatch_locked(
      [&](Generation generation) { return stpg(generation, *path, list, length); });
}
