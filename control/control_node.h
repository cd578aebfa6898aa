// The control node /dev/kz/joxconfig as a character device in user space (CUSE): takes callers'
// requests from the kernel and gives their replies.
#pragma once

#include <cstddef>
#include <memory>

namespace control {

class ControlNode {
 public:
  /// Makes the node; at most `limit` requests are in flight at a time. Throws std::runtime_error
  /// when it cannot be made, or is there already.
  explicit ControlNode(std::size_t limit);
  ControlNode(const ControlNode &) = delete;
  ControlNode &operator=(const ControlNode &) = delete;
  /// Waits for the requests in flight; the node goes.
  ~ControlNode();

  /// Becomes readable when the kernel has something for serve().
  int kernel_fd() const;
  /// Becomes readable, and stays so, when a node that shall end has no request in flight.
  int drained_fd() const;

  /// Takes one request from the kernel. False when the kernel has taken the node away.
  bool serve();

  /// From here on new requests, and programs that open the node, get ENODEV.
  void end();

 private:
  class Service;
  std::unique_ptr<Service> service_;
};

}  // namespace control
