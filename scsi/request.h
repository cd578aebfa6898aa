// What is sent: a SCSI command as an SG_IO header, or as the buffer of the legacy
// SCSI_IOCTL_SEND_COMMAND request.
#pragma once

#include <scsi/sg.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>

#include "base/memory.h"
#include "base/opcode.h"

namespace kzddl {

template <std::size_t N>
using Cdb = std::array<std::uint8_t, N>;

/// Data of an SG_IO request: which way, where, how many bytes.
struct Transfer {
  int direction = SG_DXFER_NONE;
  const void *data = nullptr;
  std::uint32_t length = 0;

  static Transfer none() { return {}; }
  static Transfer from_device(void *data, std::uint32_t length) {
    return {SG_DXFER_FROM_DEV, data, length};
  }
  static Transfer to_device(const void *data, std::uint32_t length) {
    return {SG_DXFER_TO_DEV, data, length};
  }
};

inline constexpr unsigned default_timeout_ms = 20000;

/// An SG_IO request with its sense buffer. The CDB and the data stay the caller's.
class SgRequest {
 public:
  SgRequest(std::span<const std::uint8_t> cdb, const Transfer &data,
            unsigned timeout_ms = default_timeout_ms) {
    header.interface_id = 'S';
    header.dxfer_direction = data.direction;
    header.cmd_len = static_cast<unsigned char>(cdb.size());
    header.dxfer_len = data.length;
    // The kernel only reads the CDB and what is sent to the device.
    header.dxferp = const_cast<void *>(data.data);
    header.cmdp = const_cast<unsigned char *>(cdb.data());
    header.timeout = timeout_ms;
    use_sense_buffer(sense_.data(), static_cast<std::uint8_t>(sense_.size()));
  }
  SgRequest(const SgRequest &) = delete;
  SgRequest &operator=(const SgRequest &) = delete;

  /// Puts the caller's sense buffer in place of the request's own 32 bytes.
  void use_sense_buffer(std::uint8_t *sense, std::uint8_t size) {
    header.sbp = sense;
    header.mx_sb_len = size;
  }

  /// Host, masked and driver status together: 0 when the command completed cleanly.
  int status() const { return header.host_status | header.masked_status | header.driver_status; }

  const std::uint8_t *sense() const { return header.sbp; }

  sg_io_hdr header{};

 private:
  std::array<std::uint8_t, 32> sense_{};
};

/// The legacy command buffer: in-length, out-length, then the CDB and the data sent. What the
/// device returns, data or sense, lies where the CDB lay.
class LegacyRequest {
 public:
  static constexpr std::size_t header_size = 8;
  /// Bytes that some commands leave free behind the CDB and the data.
  static constexpr std::size_t spare_size = 28;

  /// Takes `size` bytes for the whole buffer, and at least what the kernel writes of its own
  /// accord: 16 bytes of sense data, whatever the lengths say. A size that memory cannot hold
  /// counts as memory being short.
  explicit LegacyRequest(std::uint64_t size) : size_(std::max(size, min_size)) {
    if (size_ <= std::numeric_limits<std::size_t>::max() / 2) {
      block_.reset(static_cast<std::uint8_t *>(std::malloc(static_cast<std::size_t>(size_))));
    }
  }

  /// False when memory is short; nothing else may be called then.
  explicit operator bool() const { return block_ != nullptr; }

  /// Zeroes the buffer and describes one command in it.
  void prepare(std::span<const std::uint8_t> cdb, std::uint32_t in_length,
               std::uint32_t out_length) {
    std::memset(block_.get(), 0, static_cast<std::size_t>(size_));
    std::memcpy(block_.get(), &in_length, sizeof in_length);
    std::memcpy(block_.get() + sizeof in_length, &out_length, sizeof out_length);
    copy_bytes(reply(), cdb.data(), cdb.size());
    sent_ = reply() + cdb.size();
  }

  /// Where the data for the device go: right behind the CDB.
  std::uint8_t *sent() { return sent_; }

  /// Where the data of the device come back.
  std::uint8_t *reply() { return block_.get() + header_size; }

  void *argument() { return block_.get(); }

 private:
  static constexpr std::uint64_t min_size = header_size + 16;

  std::uint64_t size_;
  Buffer block_;
  std::uint8_t *sent_ = nullptr;
};

}  // namespace kzddl
