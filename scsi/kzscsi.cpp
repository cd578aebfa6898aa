// Generic pass-through of a command that the caller describes.
#include "kzddl/kzscsi.h"

#include "scsi/frame.h"

using namespace kzddl;

namespace {

Transfer transfer_of(const uscsi_cmd &req) {
  if ((req.uscsi_flags & USCSI_READ) != 0) {
    return Transfer::from_device(req.uscsi_bufaddr, req.uscsi_buflen);
  }
  Transfer data = Transfer::to_device(req.uscsi_bufaddr, req.uscsi_buflen);
  if (data.length == 0) data.direction = SG_DXFER_NONE;
  return data;
}

int do_scsi_old(const Route &route, uscsi_cmd &req) {
  if (!route) return failure();
  LegacyRequest request(std::uint64_t{LegacyRequest::header_size} + req.uscsi_cdblen +
                        req.uscsi_buflen);
  if (!request) return ENOMEM;
  // The generic path cannot know which way the data go: it announces both.
  request.prepare({req.uscsi_cdb, req.uscsi_cdblen}, req.uscsi_buflen, req.uscsi_buflen);
  copy_bytes(request.sent(), req.uscsi_bufaddr, req.uscsi_buflen);
  const int result = command_result(route.send(request));
  copy_bytes(req.uscsi_bufaddr, request.reply(), req.uscsi_buflen);
  return result;
}

int scsi(Generation generation, const odh &path, uscsi_cmd &req) {
  // Unlike the command families, IA-64 opens the node in either generation.
  if (ddl_is_arch_ia64() == 1) return do_scsi_old(Route(path.devname, O_RDONLY), req);

  const Route route(generation, path, {.direct = O_RDONLY, .indirect = 0});
  if (!route) return failure();
  SgRequest request({req.uscsi_cdb, req.uscsi_cdblen}, transfer_of(req));
  request.use_sense_buffer(req.uscsi_rqbuf, req.uscsi_rqlen);
  const int outcome = route.outcome(request);
  req.uscsi_status = request.header.status;
  req.uscsi_resid = request.header.resid;
  req.uscsi_rqresid = request.header.sb_len_wr;
  return outcome;
}

}  // namespace

int do_scsi(odh *path, uscsi_cmd *req) {
  return dispatch_locked([&](Generation generation) { return scsi(generation, *path, *req); });
}
