// The records that callers hand to the control node, in both word sizes: a 32-bit program on a
// 64-bit kernel lays them out with pointers of 4 bytes.
#pragma once

#include <scsi/sg.h>

#include <cstddef>
#include <cstdint>

namespace control {

/// The indirect request: which device, which request, and its argument.
template <class Pointer>
struct IndirectRecord {
  std::uint32_t dev_lo;
  std::uint32_t dev_hi;
  std::uint32_t cmd;
  std::uint32_t oflags;
  alignas(sizeof(Pointer)) Pointer arg;
};

/// The kernel's sg_io_hdr.
template <class Pointer>
struct SgHeader {
  std::int32_t interface_id;
  std::int32_t dxfer_direction;
  std::uint8_t cmd_len;
  std::uint8_t mx_sb_len;
  std::uint16_t iovec_count;
  std::uint32_t dxfer_len;
  alignas(sizeof(Pointer)) Pointer dxferp;
  alignas(sizeof(Pointer)) Pointer cmdp;
  alignas(sizeof(Pointer)) Pointer sbp;
  std::uint32_t timeout;
  std::uint32_t flags;
  std::int32_t pack_id;
  alignas(sizeof(Pointer)) Pointer usr_ptr;
  std::uint8_t status;
  std::uint8_t masked_status;
  std::uint8_t msg_status;
  std::uint8_t sb_len_wr;
  std::uint16_t host_status;
  std::uint16_t driver_status;
  std::int32_t resid;
  std::uint32_t duration;
  std::uint32_t info;
};

/// What SCSI_IOCTL_SEND_COMMAND's buffer starts with. The CDB and the data sent follow; what the
/// device returns comes where the CDB lay.
struct LegacyHead {
  std::uint32_t in_length;   ///< bytes for the device
  std::uint32_t out_length;  ///< bytes from the device
};

/// Sense data that the kernel leaves in a legacy buffer when a command fails.
inline constexpr std::size_t legacy_sense_size = 16;

using Pointer32 = std::uint32_t;
using Pointer64 = std::uint64_t;

static_assert(sizeof(IndirectRecord<Pointer32>) == 20);
static_assert(sizeof(IndirectRecord<Pointer64>) == 24);
static_assert(sizeof(SgHeader<Pointer32>) == 64);
static_assert(sizeof(SgHeader<Pointer64>) == 88);

using NativeSgHeader = SgHeader<std::uintptr_t>;
static_assert(sizeof(NativeSgHeader) == sizeof(sg_io_hdr));
static_assert(offsetof(NativeSgHeader, sbp) == offsetof(sg_io_hdr, sbp));
static_assert(offsetof(NativeSgHeader, usr_ptr) == offsetof(sg_io_hdr, usr_ptr));
static_assert(offsetof(NativeSgHeader, host_status) == offsetof(sg_io_hdr, host_status));
static_assert(offsetof(NativeSgHeader, info) == offsetof(sg_io_hdr, info));

}  // namespace control
