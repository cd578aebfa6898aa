// The simulated host: nodes, the multipath driver's control node, and what the platform says
// of itself. The interposed C library functions (interpose.cpp) ask it first.
//
// Thread safety: every function may be called from any thread.
#pragma once

#include <scsi/sg.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "sim/device.h"
#include "sim/fault.h"
#include "sim/request.h"

namespace sim {

// The multipath driver's interface, told once more: the simulated host vouches for what the library
// believes of it.
inline constexpr char control_node[] = "/dev/kz/joxconfig";
inline constexpr char block_directory[] = "/dev/kz/jox";
inline constexpr char raw_directory[] = "/dev/kz/rjox";
inline constexpr unsigned long indirect_request = 0x4A4F5825;

enum class NodeKind { block, character };

/// A device node: a path to a device.
struct Node {
  std::string name;
  dev_t number = 0;
  NodeKind kind = NodeKind::block;
  std::shared_ptr<Device> device;
  Port port{};
  std::string initiator = default_initiator;
  std::string address{};  ///< what the kernel calls the device, "0:0:1:3"; empty: no SCSI device
};

class Host {
 public:
  /// The process's simulated host. Empty at first: everything passes to the real platform.
  static Host &instance();

  /// In the place of any node of that name, without its faults.
  void add(Node node);
  /// Adds the multipath driver's control node.
  void add_control_node();
  /// The file at `name` reads as `text`; nothing makes it unreadable (ENOENT).
  void set_file(const std::string &name, std::optional<std::string> text);
  /// What uname answers; nothing makes it fail.
  void set_machine(std::optional<std::string> machine);

  /// From now on the process is a user's who has the devices' nodes, but no privileges: the
  /// kernel refuses some commands (EPERM), and the control node cannot be opened (EACCES).
  void drop_privileges();

  void inject(const std::string &node, Fault fault);
  /// Opening `node` fails with `error` (0: works again).
  void fail_open(const std::string &node, int error);
  /// The device goes away: descriptors get ENODEV, opens ENXIO.
  void remove(const std::string &node);

  std::vector<Node> nodes() const;
  /// The requests since the last call.
  std::vector<Request> take_requests();
  /// From now on no request is recorded: under a program nobody would ever take them.
  void stop_recording();
  int open_descriptors() const;

  // What interpose.cpp asks. An empty result means: not simulated, pass it on.
  std::optional<int> open(const std::string &name, int flags);
  void closed(int fd);
  std::optional<int> ioctl(int fd, unsigned long request, void *argument);
  bool stat(const std::string &name, mode_t &mode, dev_t &number) const;
  bool knows_machine() const;
  std::optional<std::string> machine() const;
  bool knows_file(const std::string &name) const;
  std::FILE *open_file(const std::string &name) const;
  std::optional<std::vector<std::string>> directory(const std::string &name) const;
  /// Where a symbolic link leads; an empty target: there is no such link.
  bool read_link(const std::string &name, std::string &target) const;

 private:
  struct Descriptor {
    std::string node;
    unsigned flags = 0;
  };

  int ioctl_control(unsigned long request, void *argument);
  int perform(const std::string &name, unsigned long command, void *argument, Request request);
  int sg_io(const Node &node, sg_io_hdr &header, Request request);
  int legacy(const Node &node, void *argument, Request request);
  bool may_send(const Request &request) const;
  std::optional<Reply> answer(const Node &node, const Request &request);
  // How the path is gone now, and whether a node cannot be opened for that; both count what they
  // refuse, and want the mutex held.
  std::optional<Gone> refuse_as_gone(const std::string &node, bool passes_when_offline);
  bool refuse_open(const Node &node, unsigned flags);
  FaultList::Effect meet_faults(const Request &request);

  mutable std::mutex mutex_;
  std::map<std::string, Node> nodes_;
  bool has_control_node_ = false;
  bool privileged_ = true;
  std::map<std::string, std::optional<std::string>> files_;
  std::map<std::string, std::string> links_;
  bool knows_machine_ = false;
  std::optional<std::string> machine_;
  std::map<std::string, FaultList> faults_;
  std::map<std::string, int> open_errors_;
  std::map<int, Descriptor> descriptors_;
  bool records_ = true;
  std::vector<Request> requests_;
};

}  // namespace sim
