#include "control/call.h"

#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "control/records.h"

namespace control {
namespace {

/// Takes the ranges of a request one behind the other, as far as their bytes are there.
class Cursor {
 public:
  explicit Cursor(const Call &call) : call_(call) {}

  /// Where the bytes of the range lie, once they are there.
  std::size_t take(std::uint64_t address, std::uint64_t length) {
    const std::uint64_t at = needs.in.size();
    needs.in.add(address, length);
    return static_cast<std::size_t>(at);
  }

  /// Are the bytes of all ranges that were taken there? Where they are not, it is more() that the
  /// step ends with.
  bool complete() {
    if (needs.in.size() > call_.in.size()) return false;
    known_ = needs.in.size();
    return true;
  }

  template <class Record>
  Record at(std::size_t offset) const {
    Record record;
    std::memcpy(&record, call_.in.data() + offset, sizeof record);
    return record;
  }

  /// What is needed beyond the bytes that were there. They are those that the last step asked for,
  /// unless the caller changed its memory in between.
  Step more() const {
    if (call_.out_size != 0 || call_.in.size() != known_) return Refusal{EINVAL};
    if (needs.in.size() > max_transfer || needs.out.size() > max_transfer) return Refusal{ENOMEM};
    return needs;
  }

  /// `command`, when the ranges are those that the kernel brought.
  Step finish(const Command &command) const {
    const bool same = needs.in.size() == call_.in.size() && needs.out.size() == call_.out_size;
    return same ? Step(command) : more();
  }

  Needs needs;

 private:
  const Call &call_;
  std::uint64_t known_ = 0;  ///< bytes whose meaning is known
};

/// Data move for every direction but "none"; a direction that is none of Linux's is the kernel's
/// to judge.
bool moves(std::int32_t direction) { return direction != SG_DXFER_NONE; }
bool returns(std::int32_t direction) { return moves(direction) && direction != SG_DXFER_TO_DEV; }

/// The length of a CDB by its group, as the kernel counts it.
std::size_t legacy_cdb_length(std::uint8_t opcode) {
  constexpr std::uint8_t lengths[] = {6, 10, 10, 12, 16, 12, 10, 10};
  return lengths[opcode >> 5];
}

template <class Pointer>
class Reader {
 public:
  using Header = SgHeader<Pointer>;
  using Record = IndirectRecord<Pointer>;

  explicit Reader(const Call &call) : call_(call), cursor_(call) {}

  /// SG_IO itself: the argument is a header whose dxferp points to the record.
  Step sg_io() {
    const std::size_t header_at = cursor_.take(call_.argument, sizeof(Header));
    if (!cursor_.complete()) return cursor_.more();
    const auto header = cursor_.template at<Header>(header_at);
    const std::size_t record_at = cursor_.take(header.dxferp, sizeof(Record));
    Command command = with_cdb(header_at, header);
    if (!cursor_.complete()) return refused(header).value_or(cursor_.more());
    const auto record = cursor_.template at<Record>(record_at);
    if (record.cmd != SG_IO) return Refusal{ENOTTY};
    name_device(command, record);
    return with_data(command, header, record.arg, call_.argument);
  }

  /// The driver's own request: the argument is the record, whose argument is the inner one's.
  Step indirect() {
    const std::size_t record_at = cursor_.take(call_.argument, sizeof(Record));
    if (!cursor_.complete()) return cursor_.more();
    const auto record = cursor_.template at<Record>(record_at);
    switch (record.cmd) {
      case SG_IO:
        return inner_sg_io(record);
      case SCSI_IOCTL_SEND_COMMAND:
        return inner_legacy(record);
      default:
        return Refusal{ENOTTY};
    }
  }

 private:
  Step inner_sg_io(const Record &record) {
    const std::size_t header_at = cursor_.take(record.arg, sizeof(Header));
    if (!cursor_.complete()) return cursor_.more();
    const auto header = cursor_.template at<Header>(header_at);
    Command command = with_cdb(header_at, header);
    name_device(command, record);
    return with_data(command, header, header.dxferp, record.arg);
  }

  Step inner_legacy(const Record &record) {
    // The lengths and the operation code first: they tell how long the rest is.
    constexpr std::size_t head_size = sizeof(LegacyHead);
    const std::size_t argument_at = cursor_.take(record.arg, head_size + 1);
    if (!cursor_.complete()) return cursor_.more();
    const auto head = cursor_.template at<LegacyHead>(argument_at);
    const auto opcode = cursor_.template at<std::uint8_t>(argument_at + head_size);
    constexpr std::uint32_t limit = 4096;
    if (head.in_length > limit || head.out_length > limit) return Refusal{EINVAL};

    Command command;
    command.request = SCSI_IOCTL_SEND_COMMAND;
    command.argument_at = argument_at;
    name_device(command, record);
    cursor_.needs.in.lengthen(head_size + legacy_cdb_length(opcode) + head.in_length);
    cursor_.needs.out.add(record.arg + head_size,
                          std::max<std::uint64_t>(head.out_length, legacy_sense_size));
    return cursor_.finish(command);
  }

  /// What no SG_IO request on a device accepts, or what cannot be passed on.
  std::optional<Step> refused(const Header &header) const {
    if (header.interface_id != 'S') return Refusal{EINVAL};
    // Lists of ranges, and memory shared with the driver, are not passed on.
    constexpr std::uint32_t mapped = 4;  // SG_FLAG_MMAP_IO
    if (header.iovec_count != 0 || (header.flags & mapped) != 0) return Refusal{EINVAL};
    return std::nullopt;
  }

  Command with_cdb(std::size_t header_at, const Header &header) {
    Command command;
    command.request = SG_IO;
    command.argument_at = header_at;
    command.cdb_at = cursor_.take(header.cmdp, header.cmd_len);
    return command;
  }

  void name_device(Command &command, const Record &record) const {
    command.device = std::uint64_t{record.dev_hi} << 32 | record.dev_lo;
    command.open_flags = static_cast<int>(record.oflags);
    command.from_32_bit = call_.from_32_bit;
  }

  Step with_data(Command command, const Header &header, std::uint64_t data,
                 std::uint64_t header_address) {
    if (const auto refusal = refused(header)) return *refusal;
    // What the device leaves of a reply untouched is to stay as the caller had it: the bytes are
    // read whichever way the data move.
    command.data_moves = moves(header.dxfer_direction);
    command.data_return = returns(header.dxfer_direction);
    const std::uint64_t length = command.data_moves ? header.dxfer_len : 0;
    command.data_at = cursor_.take(data, length);
    cursor_.needs.out.add(header_address, sizeof(Header));
    if (command.data_return) cursor_.needs.out.add(data, length);
    if (header.sbp != 0) cursor_.needs.out.add(header.sbp, header.mx_sb_len);
    return cursor_.finish(command);
  }

  const Call &call_;
  Cursor cursor_;
};

template <class Pointer>
Step examine_as(const Call &call) {
  switch (call.request) {
    case SG_IO:
      return Reader<Pointer>(call).sg_io();
    case indirect_request:
      return Reader<Pointer>(call).indirect();
    default:
      return Refusal{ENOTTY};
  }
}

}  // namespace

Step examine(const Call &call) {
  return call.from_32_bit ? examine_as<Pointer32>(call) : examine_as<Pointer64>(call);
}

}  // namespace control
