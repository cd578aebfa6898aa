// The indirect request: the record that the multipath driver reads from its control node.
#include "kzddl/kzmisc_sys.h"

#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "base/cancellation.h"
#include "base/descriptor.h"
#include "base/driver.h"
#include "kzddl/kzscsilib.h"

namespace {

/// The record that the driver reads: which device, which request, and its argument.
struct ddl_indirect_req {
  std::uint32_t dev_lo;
  std::uint32_t dev_hi;
  std::uint32_t cmd;
  std::uint32_t oflags;
  void *arg;
};

static_assert(offsetof(ddl_indirect_req, dev_hi) == 4);
static_assert(offsetof(ddl_indirect_req, cmd) == 8);
static_assert(offsetof(ddl_indirect_req, oflags) == 12);
static_assert(offsetof(ddl_indirect_req, arg) == 16);
static_assert(sizeof(ddl_indirect_req) == 16 + sizeof(void *));

}  // namespace

int ddl_indirect_ioctl(unsigned dev_lo, unsigned dev_hi, unsigned cmd, unsigned oflags, void *arg) {
  const kzddl::CancellationPutOff uncancelled;
  kzddl::Descriptor control;
  if (!control.open(kzddl::control_node, O_RDWR)) return ENODEV;

  ddl_indirect_req request{dev_lo, dev_hi, cmd, oflags, nullptr};
  if (cmd == SG_IO && ddl_is_linux_64() != 0) {
    // A 64-bit kernel takes SG_IO itself on the control node: the driver expects the record
    // in dxferp and the data pointer in the record.
    auto *header = static_cast<sg_io_hdr *>(arg);
    void *const data = header->dxferp;
    request.arg = data;
    header->dxferp = &request;
    const int result = ::ioctl(control.get(), SG_IO, header);
    header->dxferp = data;
    return result;
  }
  request.arg = arg;
  return ::ioctl(control.get(), kzddl::indirect_request, &request);
}
