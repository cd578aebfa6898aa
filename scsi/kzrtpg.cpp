// REPORT TARGET PORT GROUPS, sent again while the failure may be a passing one.
#include "kzddl/kzrtpg.h"

#include "scsi/frame.h"
#include "scsi/status.h"

using namespace kzddl;

namespace {

constexpr OpenFlags flags{.direct = O_RDONLY, .indirect = 0};
constexpr std::uint32_t reply_size = 255;
constexpr std::uint64_t legacy_size = LegacyRequest::header_size + reply_size + 4;  // 4 spare
constexpr int max_attempts = 64;
constexpr std::uint8_t report_target_port_groups = 0x0A;  // service action
constexpr Cdb<12> cdb{
    opcode::maintenance_in, report_target_port_groups, 0, 0, 0, 0, 0, 0, 0, reply_size};

/// May the failed request succeed when it is sent again?
bool is_transient(const SgRequest &request) {
  constexpr std::uint8_t unit_attention = 0x06;
  if (request.status() == 0) return false;  // the call itself failed
  return request.header.masked_status != check_condition || request.sense()[2] == unit_attention;
}

int do_rtpg_old(const Route &route, unsigned char **reply) {
  if (!route) return failure();
  LegacyRequest request(legacy_size);
  if (const int error = read_legacy(route, cdb, reply_size, request); error != 0) return error;
  return hand_over(duplicate(request.reply(), reply_size), reply);
}

int rtpg(Generation generation, const odh &path, unsigned char **reply) {
  if (ddl_is_arch_ia64() == 1) return do_rtpg_old(Route(generation, path, flags), reply);

  const Route route(generation, path, flags);
  if (!route) return failure();
  Buffer data = zeroed_buffer(reply_size);
  if (data == nullptr) return ENOMEM;
  SgRequest request(cdb, Transfer::from_device(data.get(), reply_size));
  int result = 0;
  for (int attempt = 0; attempt < max_attempts; ++attempt) {
    result = route.send(request);
    if (result == 0 && request.status() == 0) {
      *reply = data.release();
      return 0;
    }
    if (!is_transient(request)) break;
  }
  return result | request.status();
}

}  // namespace

int do_rtpg(odh *path, unsigned char **reply) {
  return dispatch_locked(
      [path, reply](Generation generation) { return rtpg(generation, *path, reply); });
}

int do_report_target_port_group(odh *path, unsigned char **reply) { return do_rtpg(path, reply); }
