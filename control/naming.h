// Keeps the multipath node directories: a name for each logical unit of the host, which leads to
// its best path, as devices come and go.
#pragma once

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "base/descriptor.h"
#include "base/driver.h"
#include "control/host_disks.h"
#include "control/link_directory.h"
#include "control/unit_names.h"
#include "tools/identity.h"

namespace control {

class Naming {
 public:
  /// Names what is there and what comes later, on a thread of its own: a device that does not
  /// answer delays other names, and nothing else. Throws std::runtime_error when the host's
  /// devices cannot be followed.
  Naming();
  Naming(const Naming &) = delete;
  Naming &operator=(const Naming &) = delete;
  /// Removes the names, once the device that is being asked has answered.
  ~Naming();

  /// Becomes readable when what was there at first has its names.
  int named_fd() const { return named_.get(); }

 private:
  /// What a disk says of itself, asked once.
  struct Known {
    std::string unit;
    bool has_port_groups = false;
    std::vector<std::uint8_t> page83;
  };

  void follow();
  void update();
  /// Null where the disk does not answer, or there is no unit at its address.
  const Known *know(const HostDisk &disk);

  HostDisks disks_;
  std::map<std::string, Known> known_;  ///< by place
  LinkDirectory block_{kzddl::block_directory};
  LinkDirectory raw_{kzddl::raw_directory};
  kzddl::Descriptor named_;
  kzddl::Descriptor stop_;
  std::atomic<bool> stopping_ = false;
  std::thread follower_;
};

}  // namespace control
