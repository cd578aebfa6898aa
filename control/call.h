// A caller's request on the control node, read step by step.
//
// The service sees the caller's memory only through the kernel: it names the ranges that it needs,
// and the kernel comes again with their bytes. What a range holds may have changed between two
// steps, so each step goes by its own bytes alone, and ranges that no longer fit them end the
// request.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <variant>

#include "base/driver.h"

namespace control {

using kzddl::indirect_request;

/// More than the kernel carries in one request.
inline constexpr std::uint64_t max_transfer = 1024 * 1024;

/// A range of the caller's memory.
struct Range {
  std::uint64_t address = 0;
  std::uint64_t length = 0;

  bool operator==(const Range &) const = default;
};

/// The few ranges that a request can have, none of them empty.
class Ranges {
 public:
  void add(std::uint64_t address, std::uint64_t length) {
    if (length != 0) list_[count_++] = {address, length};
    size_ += length;
  }

  /// Makes the last range longer.
  void lengthen(std::uint64_t length) {
    Range &last = list_[count_ - 1];
    size_ += length - last.length;
    last.length = length;
  }

  /// All lengths together.
  std::uint64_t size() const { return size_; }

  const Range *begin() const { return list_.data(); }
  const Range *end() const { return list_.data() + count_; }

 private:
  std::array<Range, 4> list_{};
  std::size_t count_ = 0;
  std::uint64_t size_ = 0;
};

/// A request as the kernel delivers it at one step.
struct Call {
  unsigned request = 0;
  std::uint64_t argument = 0;
  bool from_32_bit = false;       ///< the caller's pointers have 4 bytes
  std::span<const std::byte> in;  ///< the ranges that were asked for, one behind the other
  std::size_t out_size = 0;       ///< bytes of the caller's memory that a reply may fill
};

/// The kernel shall come again with the bytes of `in`, and let the reply fill `out`.
struct Needs {
  Ranges in;
  Ranges out;
};

/// The request ends with this errno.
struct Refusal {
  int error = 0;
};

/// A request that is known in full. A reply fills, one behind the other: for SG_IO the header, the
/// data if they come back, the sense data; for a legacy request what lies behind the lengths.
struct Command {
  std::uint64_t device = 0;  ///< number, as stat tells it
  int open_flags = 0;
  unsigned request = 0;  ///< SG_IO or SCSI_IOCTL_SEND_COMMAND
  bool from_32_bit = false;

  // Where things lie in the bytes of the call.
  std::size_t argument_at = 0;  ///< the SgHeader, or the LegacyHead
  std::size_t cdb_at = 0;
  std::size_t data_at = 0;
  bool data_moves = false;   ///< the header's dxfer_len bytes are there
  bool data_return = false;  ///< and go back to the caller
};

using Step = std::variant<Needs, Refusal, Command>;

/// What a call amounts to at this step.
Step examine(const Call &call);

}  // namespace control
