// The persistent reservations of a simulated disk (SPC): registrations, the reservation, and
// what they let other nexuses do.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <vector>

#include "sim/command_rules.h"
#include "sim/device.h"
#include "sim/unit_attentions.h"

namespace sim {

/// Reservation types by their codes.
enum class ReservationType : std::uint8_t {
  write_exclusive = 1,
  exclusive_access = 3,
  write_exclusive_registrants_only = 5,
  exclusive_access_registrants_only = 6,
  write_exclusive_all_registrants = 7,
  exclusive_access_all_registrants = 8,
};

/// Not safe for concurrent use: the disk's mutex guards it.
class Reservations {
 public:
  /// Keeps a reference to `attentions`.
  explicit Reservations(UnitAttentions &attentions) : attentions_(attentions) {}

  /// Whether the reservation keeps a nexus from a command with this effect.
  bool refuses(const Nexus &nexus, Effect effect) const;

  /// The data that a PERSISTENT RESERVE IN asks for, whole.
  Bytes in(std::span<const std::uint8_t> cdb) const;
  /// Carries out a PERSISTENT RESERVE OUT with its parameter list of `parameter_list_size` bytes.
  void out(std::span<const std::uint8_t> cdb, std::span<const std::uint8_t> list,
           const Nexus &nexus);

  static constexpr std::size_t parameter_list_size = 24;

  /// Everything, and back again: what is kept for other processes.
  nlohmann::json state() const;
  void restore(const nlohmann::json &state);

 private:
  struct Registration {
    Nexus nexus;
    std::uint64_t key;
  };
  struct Reservation {
    ReservationType type;
    Nexus holder;  ///< of all-registrants types every registrant is one
  };

  std::optional<std::uint64_t> key_of(const Nexus &nexus) const;
  bool holds(const Nexus &nexus) const;
  void set_key(const Nexus &nexus, std::uint64_t key);
  /// Ends a nexus's registration, and its reservation with it.
  void unregister(const Nexus &nexus);
  void reserve(const Nexus &nexus, std::uint8_t scope_and_type);
  void release(const Nexus &nexus, std::uint8_t scope_and_type);
  void clear(const Nexus &nexus);
  void preempt(const Nexus &nexus, std::uint64_t key, std::uint8_t scope_and_type);
  /// Removes the registrations that `condemned` says and tells their nexuses, but not `cause`'s.
  template <class Condemned>
  void preempt_registrations(const Nexus &cause, Condemned condemned);
  void tell_registrants_but(const Nexus &cause, const Sense &attention);

  Bytes keys() const;
  Bytes reservation() const;
  Bytes capabilities() const;

  UnitAttentions &attentions_;
  std::vector<Registration> registrations_;  ///< in the order of their registration
  std::optional<Reservation> reservation_;
  std::uint32_t generation_ = 0;
  bool through_power_loss_ = false;  ///< the last registration's APTPL
};

}  // namespace sim
