// TEST UNIT READY, which reports its failures on standard error.
#include "kzddl/kztur.h"

#include <cstdio>
#include <cstdlib>

#include "scsi/frame.h"

using namespace kzddl;

namespace {

constexpr Cdb<6> cdb{opcode::test_unit_ready};
constexpr OpenFlags flags{.direct = O_RDONLY, .indirect = O_NONBLOCK};
constexpr std::uint64_t legacy_size =
    LegacyRequest::header_size + cdb.size() + LegacyRequest::spare_size;

int do_tur_old(const Route &route) {
  if (!route) return -1;
  LegacyRequest request(legacy_size);
  if (!request) return -1;
  request.prepare(cdb, 0, 0);
  return route.send(request);
}

int tur(Generation generation, const odh &path) {
  if (ddl_is_arch_ia64() == 1) return do_tur_old(Route(generation, path, flags));

  const Route route(generation, path, flags);
  if (!route) {
    std::perror("open failed");
    return 1;
  }
  SgRequest request(cdb, Transfer::none());
  const int outcome = route.outcome(request);
  if (outcome == 0) return 0;
  std::perror("TUR ioctl failed");
  return -std::abs(outcome);
}

}  // namespace

int do_tur(odh *path) {
  return dispatch([path](Generation generation) { return tur(generation, *path); });
}

int do_tur_35(odh *path) { return tur(Generation::indirect, *path); }

int do_tur_32(odh *path) { return tur(Generation::direct, *path); }
