#include "control/perform.h"

#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/descriptor.h"
#include "control/device.h"
#include "control/records.h"

namespace control {
namespace {

/// A header of this service's own word size, as its caller filled it.
template <class Pointer>
sg_io_hdr native(const SgHeader<Pointer> &caller) {
  sg_io_hdr header{};
  header.interface_id = caller.interface_id;
  header.dxfer_direction = caller.dxfer_direction;
  header.cmd_len = caller.cmd_len;
  header.mx_sb_len = caller.mx_sb_len;
  header.dxfer_len = caller.dxfer_len;
  header.timeout = caller.timeout;
  header.flags = caller.flags;
  header.pack_id = caller.pack_id;
  return header;
}

template <class Pointer>
void copy_results(SgHeader<Pointer> &caller, const sg_io_hdr &header) {
  caller.status = header.status;
  caller.masked_status = header.masked_status;
  caller.msg_status = header.msg_status;
  caller.sb_len_wr = header.sb_len_wr;
  caller.host_status = header.host_status;
  caller.driver_status = header.driver_status;
  caller.resid = header.resid;
  caller.duration = header.duration;
  caller.info = header.info;
}

}  // namespace

Job::Job(const Command &command, std::span<const std::byte> bytes)
    : command_(command), bytes_(bytes.begin(), bytes.end()) {}

void Job::perform() {
  const int fd = open_device(command_.device, command_.open_flags);
  if (fd < 0) {
    result_ = fd;
    return;
  }
  const kzddl::Descriptor device(fd);
  if (command_.request == SCSI_IOCTL_SEND_COMMAND) {
    perform_legacy(device.get());
  } else if (command_.from_32_bit) {
    perform_sg_io<Pointer32>(device.get());
  } else {
    perform_sg_io<Pointer64>(device.get());
  }
}

template <class Pointer>
void Job::perform_sg_io(int device) {
  SgHeader<Pointer> caller;
  std::byte *const place = bytes_.data() + command_.argument_at;
  std::memcpy(&caller, place, sizeof caller);
  sg_io_hdr header = native(caller);
  header.cmdp = reinterpret_cast<unsigned char *>(bytes_.data() + command_.cdb_at);
  header.dxferp = command_.data_moves ? bytes_.data() + command_.data_at : nullptr;
  header.sbp = caller.sbp != 0 ? reinterpret_cast<unsigned char *>(sense_.data()) : nullptr;
  if (ioctl(device, SG_IO, &header) != 0) {
    result_ = -errno;
    return;
  }
  copy_results(caller, header);
  std::memcpy(place, &caller, sizeof caller);
  answer(place, sizeof caller);
  if (command_.data_return) answer(bytes_.data() + command_.data_at, caller.dxfer_len);
  // The last range: as much of it as there is sense data.
  if (caller.sbp != 0) answer(sense_.data(), std::min(header.sb_len_wr, header.mx_sb_len));
}

void Job::perform_legacy(int device) {
  LegacyHead head;
  std::memcpy(&head, bytes_.data() + command_.argument_at, sizeof head);
  // What comes back may be longer than what was sent.
  const std::size_t data_at = command_.argument_at + sizeof head;
  const std::size_t returned = std::max<std::size_t>(head.out_length, legacy_sense_size);
  bytes_.resize(std::max(bytes_.size(), data_at + returned));

  std::byte *const data = bytes_.data() + data_at;
  std::array<std::byte, legacy_sense_size> before;
  std::memcpy(before.data(), data, before.size());
  result_ = ioctl(device, SCSI_IOCTL_SEND_COMMAND, bytes_.data() + command_.argument_at);
  if (result_ < 0) {
    result_ = -errno;
  } else if (result_ == 0) {
    answer(data, head.out_length);
  } else if (std::memcmp(before.data(), data, before.size()) != 0) {
    answer(data, before.size());  // sense data
  }
}

}  // namespace control
