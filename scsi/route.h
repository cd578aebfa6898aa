// Where a command goes: to an opened device node, or through the multipath driver's
// control node to the device of a given number.
#pragma once

#include <fcntl.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdint>

#include "base/cancellation.h"
#include "base/descriptor.h"
#include "kzddl/kzmisc_sys.h"
#include "kzddl/odh.h"
#include "scsi/request.h"
#include "scsi/version.h"

namespace kzddl {

/// The two words of a device number, as the driver takes them.
struct DeviceWords {
  unsigned lo;
  unsigned hi;

  static DeviceWords of(const odh &path) {
    return {static_cast<unsigned>(path.dev), static_cast<unsigned>(path.dev >> 32)};
  }
};

/// Open flags of a command family: for the node itself, and for the driver's request.
struct OpenFlags {
  int direct;
  unsigned indirect;
};

/// The thread is not cancelled while it has a route: what a command holds is made after its route,
/// or not held across one.
class Route {
 public:
  /// The route that `generation` says. The direct one opens the node at once.
  Route(Generation generation, const odh &path, OpenFlags flags)
      : direct_(generation == Generation::direct),
        words_(DeviceWords::of(path)),
        oflags_(flags.indirect) {
    if (direct_) node_.open(path.devname, flags.direct);
  }

  /// Direct, by node name.
  Route(const char *node, int oflags) : direct_(true) { node_.open(node, oflags); }

  /// Indirect, by device number.
  Route(DeviceWords words, unsigned oflags) : words_(words), oflags_(oflags) {}

  /// False when the node could not be opened (errno says why).
  explicit operator bool() const { return !direct_ || node_; }

  /// Both return what the ioctl, or ddl_indirect_ioctl, returned.
  int send(SgRequest &request) const { return perform(SG_IO, &request.header); }
  int send(LegacyRequest &request) const {
    return perform(SCSI_IOCTL_SEND_COMMAND, request.argument());
  }

  /// The call's result or, where that is 0, the request's status.
  int outcome(SgRequest &request) const {
    const int result = send(request);
    return result != 0 ? result : request.status();
  }

 private:
  int perform(unsigned request, void *argument) const {
    return direct_ ? ::ioctl(node_.get(), request, argument)
                   : ddl_indirect_ioctl(words_.lo, words_.hi, request, oflags_, argument);
  }

  CancellationPutOff uncancelled_;  // before anything is open
  bool direct_ = false;
  DeviceWords words_{};
  unsigned oflags_ = 0;
  Descriptor node_;
};

}  // namespace kzddl
