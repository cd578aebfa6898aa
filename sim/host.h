// The simulated host: nodes, the multipath driver's control node, and what the platform says
// of itself. The interposed C library functions (interpose.cpp) ask it first.
//
// Thread safety: every function may be called from any thread.
#pragma once

#include <scsi/sg.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "sim/fault.h"
#include "sim/file_tree.h"
#include "sim/node.h"
#include "sim/request.h"

namespace sim {

// The multipath driver's interface, told once more: the simulated host vouches for what the library
// believes of it.
inline constexpr char control_node[] = "/dev/kz/joxconfig";
inline constexpr char block_directory[] = "/dev/kz/jox";
inline constexpr char raw_directory[] = "/dev/kz/rjox";
inline constexpr unsigned long indirect_request = 0x4A4F5825;

/// What stands at a name.
struct Status {
  mode_t mode = 0;
  dev_t number = 0;         ///< a node's
  std::size_t size = 0;     ///< a file's or link's, in bytes
  std::uint64_t inode = 0;  ///< one for each name
};

/// An entry of a directory.
struct DirectoryEntry {
  std::string name;
  mode_t type = 0;  ///< S_IFLNK and its like
};

class Host {
 public:
  /// The process's simulated host. Empty at first: everything passes to the real platform.
  static Host &instance();
  /// One beside it, which no interposed function asks.
  Host();

  /// In the place of any node of that name, without its faults; a number leads to the last added.
  void add(Node node);
  /// Adds the multipath driver's control node.
  void add_control_node();
  /// The file at `name` reads as `text`; nothing makes it unreadable (ENOENT).
  void set_file(const std::string &name, std::optional<std::string> text);
  /// The same with a text that changes. `read` may ask the host.
  void set_file(const std::string &name, FileTree::Read read);
  /// A symbolic link below /dev to a node. A directory in /dev on its way is the simulated host's
  /// alone.
  void add_link(const std::string &name, const std::string &node);
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

  /// Whether a fault says now that the node's device is removed: /sys does not have it then.
  bool is_removed(const std::string &node) const;

  std::vector<Node> nodes() const;
  /// The requests since the last call.
  std::vector<Request> take_requests();
  /// From now on no request is recorded: under a program nobody would ever take them.
  void stop_recording();
  int open_descriptors() const;

  // What the interposed functions ask: their result, and errno where it is -1. An empty one means:
  // not simulated, pass it on.
  std::optional<int> open(const std::string &name, int flags);
  /// Opens a file for reading; a node is not one.
  std::optional<int> open_file(const std::string &name) const;
  void closed(int fd);
  std::optional<int> ioctl(int fd, unsigned long request, void *argument);
  std::optional<int> stat(const std::string &name, bool follow, Status &status) const;
  std::optional<int> stat(int fd, Status &status) const;
  std::optional<int> read_link(const std::string &name, std::string &target) const;
  std::optional<int> canonical(const std::string &name, std::string &result) const;
  std::optional<int> list(const std::string &name, std::vector<DirectoryEntry> &entries) const;
  /// What a descriptor was opened as.
  std::optional<std::string> name_of(int fd) const;
  bool knows_machine() const;
  std::optional<std::string> machine() const;

 private:
  struct Descriptor {
    std::string name;
    unsigned flags = 0;
  };

  /// What stands at a name: no kind, if nothing does.
  struct Place {
    std::string name{};
    std::optional<FileTree::Kind> kind{};
    std::string text{};  ///< of a file, or where a link leads
  };

  std::optional<Place> locate(const std::string &name, bool follow = true) const;
  Status status_of(const Place &place) const;
  int open_node(const std::string &name, int flags);
  int open_descriptor(const std::string &name, int flags);
  std::string state_of(const std::string &node) const;
  bool is_removed_now(const std::string &node) const;

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
  std::map<std::string, std::shared_ptr<const Node>> nodes_;
  std::map<dev_t, std::string> names_by_number_;
  FileTree tree_;
  bool privileged_ = true;
  bool knows_machine_ = false;
  std::optional<std::string> machine_;
  std::map<std::string, FaultList> faults_;
  std::map<std::string, int> open_errors_;
  std::map<int, Descriptor> descriptors_;
  bool records_ = true;
  std::vector<Request> requests_;
};

}  // namespace sim
