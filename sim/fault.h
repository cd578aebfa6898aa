// What goes wrong with the requests of a node: with which, from when to when, and how.
//
// Not safe for concurrent use: the host's mutex guards it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <variant>
#include <vector>

#include "sim/device.h"
#include "sim/request.h"

namespace sim {

/// How a path is gone for the kernel itself: opens fail.
enum class Gone { removed, offline };

/// How the host adapter ends a request that the device did not answer.
namespace host_status {
inline constexpr std::uint16_t no_connect = 1;
inline constexpr std::uint16_t time_out = 3;
}  // namespace host_status

struct Operation {
  std::uint8_t opcode;
  std::optional<std::uint8_t> service_action{};  ///< any when empty
};

/// The operations that a fault concerns; all when none is named.
class Operations : public std::vector<Operation> {
 public:
  Operations() = default;
  // Implicit: most faults that a test injects concern one operation.
  Operations(std::uint8_t opcode) { push_back({opcode}); }

  bool contain(const Bytes &cdb) const;
};

/// A number of requests, or a time.
using Extent = std::variant<int, std::chrono::milliseconds>;

/// Something that goes wrong with requests of a node. One that does no more than delay them lets
/// the next one act as well.
struct Fault {
  Operations opcode{};
  Extent times = 1;                       ///< how often or how long; -1: for ever
  std::optional<int> error{};             ///< the ioctl fails with this errno
  std::optional<Reply> reply{};           ///< answered in the device's place, which sees nothing
  std::function<void(Reply &)> change{};  ///< alters the device's own reply
  std::function<void()> before{};         ///< runs before the request is answered
  std::vector<std::uint8_t> pages{};      ///< only for INQUIRY of these VPD pages
  std::optional<Request::Form> form{};    ///< only for requests of this form
  Extent after = 0;                       ///< what passes before it begins
  std::chrono::milliseconds delay{};      ///< what the request takes longer
  std::optional<Gone> gone{};             ///< the path is gone, for every request

  /// For ever.
  static Fault offline() {
    return {
        .times = -1, .reply = Reply{.host_status = host_status::no_connect}, .gone = Gone::offline};
  }

  bool concerns(const Request &request) const;
  bool only_delays() const { return !error && !reply && !change && !before && !gone; }
};

/// A node's faults, in the order of their coming.
class FaultList {
 public:
  void add(Fault fault) { faults_.push_back({std::move(fault)}); }

  /// How the path is gone now, if it is.
  std::optional<Gone> gone() const;
  /// Counts a request or an open that found it gone.
  void count_gone();

  /// What becomes of a request.
  struct Effect {
    std::chrono::milliseconds delay{};
    std::optional<Fault> fault{};
  };
  Effect meet(const Request &request);

 private:
  using Clock = std::chrono::steady_clock;

  struct Kept {
    Fault fault;
    Clock::time_point began = Clock::now();  ///< or came, if it has to wait for a time
    std::int64_t passed = 0;                 ///< requests, before it began
    std::int64_t met = 0;                    ///< requests, since then

    bool has_begun() const;
    bool acts() const;
    void pass();
  };

  std::vector<Kept> faults_;
};

}  // namespace sim
