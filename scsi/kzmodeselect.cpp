// MODE SELECT(6) through the control node.
#include "kzddl/kzmodeselect.h"

#include "scsi/frame.h"

using namespace kzddl;

namespace {

constexpr unsigned oflags = O_NONBLOCK;
constexpr unsigned timeout_ms = 60000;

Cdb<6> mode_select_cdb(int pf, int sp, unsigned char len) {
  return {opcode::mode_select_6, static_cast<std::uint8_t>(pf << 4 | sp), 0, 0, len, 0};
}

}  // namespace

int do_mode_select_raw(unsigned dev_lo, unsigned dev_hi, int pf, int sp, unsigned char len,
                       const unsigned char *data) {
  if (ddl_is_arch_ia64() == 1) return do_mode_select_raw_old(dev_lo, dev_hi, pf, sp, len, data);
  const Cdb<6> cdb = mode_select_cdb(pf, sp, len);
  SgRequest request(cdb, Transfer::to_device(data, len), timeout_ms);
  return command_result(Route(DeviceWords{dev_lo, dev_hi}, oflags).outcome(request));
}

int do_mode_select_raw_old(unsigned dev_lo, unsigned dev_hi, int pf, int sp, unsigned char len,
                           const unsigned char *data) {
  const Cdb<6> cdb = mode_select_cdb(pf, sp, len);
  LegacyRequest request(LegacyRequest::header_size + cdb.size() + len);
  if (!request) return ENOMEM;
  request.prepare(cdb, len, 0);
  copy_bytes(request.sent(), data, len);
  return command_result(Route(DeviceWords{dev_lo, dev_hi}, oflags).send(request));
}
