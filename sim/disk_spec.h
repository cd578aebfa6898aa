// What a simulated disk is made to be.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/scsi.h"

namespace sim {

/// What the Format Device and Rigid Disk Geometry mode pages say.
struct Geometry {
  std::uint16_t sectors = 63;  ///< in a track
  std::uint8_t heads = 255;
  std::optional<std::uint32_t> cylinders{};         ///< 24 bits; as the capacity gives when empty
  std::optional<std::uint16_t> bytes_per_sector{};  ///< the block size when empty
  std::uint16_t rotation_rate = 7200;               ///< in revolutions a minute
};

/// Where a disk tells the limits of its copy manager.
enum class CopyParameters {
  none,
  mode_page,  ///< in the mode page alone
  command,    ///< in the mode page and to RECEIVE COPY RESULTS
};

/// Asymmetric access states by their codes.
enum class AccessState : std::uint8_t {
  active_optimized,
  active_non_optimized,
  standby,
  unavailable,
};

struct TargetPortGroup {
  std::uint16_t id = 1;
  AccessState state = AccessState::active_optimized;
  bool preferred = false;
  std::vector<std::uint16_t> ports{};  ///< relative identifiers, at most 255
};

struct DiskSpec {
  std::string vendor = "KZSIM";
  std::string product = "VIRTUAL DISK";
  std::string revision = "0100";
  std::string serial{};                ///< Unit Serial Number page; no such page when empty
  std::optional<Bytes> designators{};  ///< the whole of page 83h, in the place of the disk's own
  std::optional<std::set<std::uint8_t>> vpd_pages{};  ///< those it has; all it can when empty
  Bytes naa{};                     ///< NAA designator of 8 or 16 bytes; none when empty
  std::optional<Sense> not_ready;  ///< why TEST UNIT READY and the medium's commands fail
  std::uint64_t blocks = 2'097'152;
  std::uint32_t block_size = 512;                 ///< 512 or 4096 bytes
  std::string file{};                             ///< keeps the blocks; nothing does when empty
  std::optional<Geometry> geometry = Geometry{};  ///< no such mode pages when empty
  bool answers_page_0 = false;                    ///< has a (vendor's) mode page 0
  CopyParameters copy = CopyParameters::command;
  std::vector<TargetPortGroup> groups{};  ///< none: no asymmetric access
};

}  // namespace sim
