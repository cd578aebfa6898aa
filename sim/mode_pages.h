// The mode parameters of a simulated disk: what MODE SENSE(6) reports and MODE SELECT(6) sets.
#pragma once

#include <cstdint>
#include <map>
#include <span>

#include "sim/disk_spec.h"

namespace sim {

/// Not safe for concurrent use: the disk's mutex guards it.
class ModePages {
 public:
  explicit ModePages(const DiskSpec &spec);

  /// The mode parameter list that a MODE SENSE(6) asks for, whole.
  Bytes sense(std::span<const std::uint8_t> cdb) const;

  /// Takes the parameter list of a MODE SELECT(6): all of it or, when any of it is refused,
  /// nothing. The result says whether a value changed.
  bool select(std::span<const std::uint8_t> cdb, std::span<const std::uint8_t> list);

  bool descriptor_sense() const;  ///< D_SENSE
  bool write_protected() const;   ///< SWP

 private:
  struct Page {
    Bytes current;
    Bytes defaults;
    Bytes changeable;  ///< as reported
    Bytes writable;    ///< the bits that MODE SELECT may change
  };

  void add(Bytes values, Bytes writable = {});

  Bytes block_descriptor_;
  std::map<std::uint8_t, Page> pages_;
};

}  // namespace sim
