// READ(10) and WRITE(10) by the legacy request, in chunks; reservation check.
#include "kzddl/kzdiskio.h"

#include <algorithm>

#include "base/bytes.h"
#include "kzddl/kzmodesense.h"
#include "scsi/frame.h"
#include "scsi/status.h"

using namespace kzddl;

namespace {

constexpr OpenFlags flags{.direct = O_RDONLY, .indirect = O_NONBLOCK};
constexpr unsigned block_size = 512;
constexpr unsigned max_chunk = 8;  // blocks: a page of data, the kernel's limit
constexpr int failed = -1;

/// RESERVATION CONFLICT comes back as the code or, from Linux itself, as the status byte.
bool is_conflict(int result) {
  return result == reservation_conflict || result == reservation_conflict << 1;
}

/// Of the legacy buffer, around the data; 4 bytes are spare.
constexpr std::uint64_t overhead = LegacyRequest::header_size + sizeof(Cdb<10>) + 4;

Cdb<10> diskio_cdb(bool write, unsigned lba, unsigned blocks) {
  Cdb<10> cdb{write ? opcode::write_10 : opcode::read_10};
  store_be32(&cdb[2], lba);
  store_be16(&cdb[7], static_cast<std::uint16_t>(blocks));
  return cdb;
}

/// Runs the chunks. Returns 0, the transport's result for the chunk that failed, or -1 when
/// memory is short.
int diskio(const Route &route, unsigned lba, unsigned nblocks, unsigned char *buf, int op) {
  unsigned remaining = nblocks & 0xFFFF;
  LegacyRequest request(overhead + block_size * std::min(remaining, max_chunk));
  if (!request) return failed;
  const bool write = op == KZDDL_DISKIO_WRITE;
  while (remaining != 0) {
    const unsigned chunk = std::min(remaining, max_chunk);
    const unsigned bytes = block_size * chunk;
    request.prepare(diskio_cdb(write, lba, chunk), write ? bytes : 0, write ? 0 : bytes);
    if (write) std::memcpy(request.sent(), buf, bytes);
    if (const int result = route.send(request); result != 0) return result;
    if (op == KZDDL_DISKIO_READ) std::memcpy(buf, request.reply(), bytes);
    lba += chunk;
    if (buf != nullptr) buf += bytes;
    remaining -= chunk;
  }
  return 0;
}

}  // namespace

int do_diskio(odh *path, unsigned lba, unsigned nblocks, unsigned char *buf, int op) {
  return dispatch([&](Generation generation) {
    return generation == Generation::direct ? do_diskio_32(path->devname, lba, nblocks, buf, op)
                                            : do_diskio_35(path, lba, nblocks, buf, op);
  });
}

int do_diskio_35(odh *path, unsigned lba, unsigned nblocks, unsigned char *buf, int op) {
  const Route route(Generation::indirect, *path, flags);
  const int result = diskio(route, lba, nblocks, buf, op);
  if (result == 0) return 0;
  return op == KZDDL_DISKIO_PROBE && is_conflict(result) ? KZDDL_DISKIO_CONFLICT : failed;
}

int do_diskio_32(const char *node, unsigned lba, unsigned nblocks, unsigned char *buf, int op) {
  const Route route(node, flags.direct);
  if (!route) return failed;
  return diskio(route, lba, nblocks, buf, op) == 0 ? 0 : failed;
}

int do_diskio_chk_rsvn(odh *path) {
  int length = 0;
  unsigned char *pages = nullptr;
  int conflict = 0;
  const int result = do_mode_sense(path, 0, 0, 0, &length, &pages, &conflict);
  const Buffer owner(pages);
  if (conflict != 0) return KZDDL_DISKIO_CONFLICT;
  return result != 0 ? failed : 0;
}
