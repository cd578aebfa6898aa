#include "sim/reservations.h"

#include <algorithm>

#include "base/bytes.h"
#include "sim/nexus_json.h"

namespace sim {
namespace {

enum OutAction {
  register_key = 0x00,
  reserve_action = 0x01,
  release_action = 0x02,
  clear_action = 0x03,
  preempt_action = 0x04,
  preempt_and_abort = 0x05,
  register_and_ignore_existing_key = 0x06,
};

enum InAction { read_keys = 0x00, read_reservation = 0x01, report_capabilities = 0x02 };

constexpr std::uint8_t service_action_bits = 0x1F;

// Parameter list, byte 20
constexpr std::uint8_t activate_persist_through_power_loss = 0x01;
constexpr std::uint8_t all_target_ports = 0x04;
constexpr std::uint8_t specify_initiator_ports = 0x08;

constexpr bool is_exclusive_access(ReservationType type) {
  return type == ReservationType::exclusive_access ||
         type == ReservationType::exclusive_access_registrants_only ||
         type == ReservationType::exclusive_access_all_registrants;
}

constexpr bool is_all_registrants(ReservationType type) {
  return type == ReservationType::write_exclusive_all_registrants ||
         type == ReservationType::exclusive_access_all_registrants;
}

/// Whether registrants share the access: registrants-only and all-registrants types.
constexpr bool is_shared(ReservationType type) {
  return type != ReservationType::write_exclusive && type != ReservationType::exclusive_access;
}

/// The type in the CDB's scope and type byte, whose scope must be the logical unit's.
ReservationType checked_type(std::uint8_t scope_and_type) {
  switch (const auto type = static_cast<ReservationType>(scope_and_type)) {
    case ReservationType::write_exclusive:
    case ReservationType::exclusive_access:
    case ReservationType::write_exclusive_registrants_only:
    case ReservationType::exclusive_access_registrants_only:
    case ReservationType::write_exclusive_all_registrants:
    case ReservationType::exclusive_access_all_registrants:
      return type;
  }
  refuse(invalid_field_in_cdb);
}

constexpr std::size_t in_header_size = 8;

/// PRGENERATION, ADDITIONAL LENGTH, and room for a list.
Bytes list_with_header(std::uint32_t generation, std::size_t size) {
  Bytes data(in_header_size + size);
  kzddl::store_be32(&data[0], generation);
  kzddl::store_be32(&data[4], static_cast<std::uint32_t>(size));
  return data;
}

}  // namespace

bool Reservations::refuses(const Nexus &nexus, Effect effect) const {
  if (!reservation_ || effect == Effect::none || holds(nexus)) return false;
  if (is_shared(reservation_->type) && key_of(nexus)) return false;
  return effect == Effect::writes || is_exclusive_access(reservation_->type);
}

std::optional<std::uint64_t> Reservations::key_of(const Nexus &nexus) const {
  for (const Registration &registration : registrations_) {
    if (registration.nexus == nexus) return registration.key;
  }
  return std::nullopt;
}

bool Reservations::holds(const Nexus &nexus) const {
  if (!reservation_) return false;
  return is_all_registrants(reservation_->type) ? key_of(nexus).has_value()
                                                : reservation_->holder == nexus;
}

// --- PERSISTENT RESERVE OUT ---

void Reservations::out(std::span<const std::uint8_t> cdb, std::span<const std::uint8_t> list,
                       const Nexus &nexus) {
  const unsigned action = cdb[1] & service_action_bits;
  const std::uint8_t scope_and_type = cdb[2];
  const std::uint64_t key = kzddl::load_be64(&list[0]);
  const std::uint64_t action_key = kzddl::load_be64(&list[8]);
  const std::uint8_t flags = list[20];

  if (action > register_and_ignore_existing_key) refuse(invalid_field_in_cdb);
  if (action == register_key || action == register_and_ignore_existing_key) {
    if ((flags & (all_target_ports | specify_initiator_ports)) != 0) {
      refuse(invalid_field_in_parameter_list);
    }
    // Who is not registered says so with a key of zero.
    if (action == register_key && key != key_of(nexus).value_or(0)) refuse_with_conflict();
    through_power_loss_ = (flags & activate_persist_through_power_loss) != 0;
    return set_key(nexus, action_key);
  }
  if (key_of(nexus) != key) refuse_with_conflict();
  switch (action) {
    case reserve_action:
      return reserve(nexus, scope_and_type);
    case release_action:
      return release(nexus, scope_and_type);
    case clear_action:
      return clear(nexus);
    default:  // PREEMPT AND ABORT finds no other command to abort: they are done one by one
      return preempt(nexus, action_key, scope_and_type);
  }
}

void Reservations::set_key(const Nexus &nexus, std::uint64_t key) {
  if (key == 0) {
    if (key_of(nexus)) {
      unregister(nexus);
      ++generation_;
    }
    return;
  }
  ++generation_;
  for (Registration &registration : registrations_) {
    if (registration.nexus == nexus) {
      registration.key = key;
      return;
    }
  }
  registrations_.push_back({nexus, key});
}

void Reservations::unregister(const Nexus &nexus) {
  const bool held_alone = holds(nexus) && !is_all_registrants(reservation_->type);
  std::erase_if(registrations_, [&nexus](const auto &each) { return each.nexus == nexus; });
  if (!reservation_ || (!held_alone && !registrations_.empty())) return;
  if (is_shared(reservation_->type)) tell_registrants_but(nexus, reservations_released);
  reservation_.reset();
}

void Reservations::reserve(const Nexus &nexus, std::uint8_t scope_and_type) {
  const ReservationType type = checked_type(scope_and_type);
  if (!reservation_) {
    reservation_ = {type, nexus};
  } else if (!holds(nexus) || reservation_->type != type) {
    refuse_with_conflict();
  }
}

void Reservations::release(const Nexus &nexus, std::uint8_t scope_and_type) {
  if (!holds(nexus)) return;  // nothing of its own to release
  const ReservationType type = reservation_->type;
  if (scope_and_type != static_cast<std::uint8_t>(type)) refuse(invalid_release);
  reservation_.reset();
  if (is_shared(type)) tell_registrants_but(nexus, reservations_released);
}

void Reservations::clear(const Nexus &nexus) {
  tell_registrants_but(nexus, reservations_preempted);
  registrations_.clear();
  reservation_.reset();
  ++generation_;
}

void Reservations::preempt(const Nexus &nexus, std::uint64_t key, std::uint8_t scope_and_type) {
  const bool all_registrants = reservation_ && is_all_registrants(reservation_->type);
  const bool takes_over =
      reservation_ && (all_registrants ? key == 0 : key_of(reservation_->holder) == key);
  if (takes_over) {
    const ReservationType type = checked_type(scope_and_type);
    preempt_registrations(nexus, [&](const Registration &each) {
      return each.nexus != nexus && (all_registrants || each.key == key);
    });
    if (type != reservation_->type) tell_registrants_but(nexus, reservations_released);
    reservation_ = {type, nexus};
  } else {
    if (key == 0) refuse(invalid_field_in_parameter_list);
    const auto has_key = [key](const Registration &each) { return each.key == key; };
    if (std::ranges::none_of(registrations_, has_key)) refuse_with_conflict();
    preempt_registrations(nexus, has_key);
    if (registrations_.empty()) reservation_.reset();
  }
  ++generation_;
}

template <class Condemned>
void Reservations::preempt_registrations(const Nexus &cause, Condemned condemned) {
  for (const Registration &each : registrations_) {
    if (condemned(each) && each.nexus != cause) {
      attentions_.raise(each.nexus, registrations_preempted);
    }
  }
  std::erase_if(registrations_, condemned);
}

void Reservations::tell_registrants_but(const Nexus &cause, const Sense &attention) {
  for (const Registration &each : registrations_) {
    if (each.nexus != cause) attentions_.raise(each.nexus, attention);
  }
}

nlohmann::json Reservations::state() const {
  auto registrations = nlohmann::json::array();
  for (const auto &[nexus, key] : registrations_) {
    registrations.push_back({{"nexus", nexus}, {"key", key}});
  }
  nlohmann::json reservation;
  if (reservation_) {
    reservation = {{"type", static_cast<unsigned>(reservation_->type)},
                   {"holder", reservation_->holder}};
  }
  return {{"registrations", registrations},
          {"reservation", reservation},
          {"generation", generation_},
          {"through_power_loss", through_power_loss_}};
}

void Reservations::restore(const nlohmann::json &state) {
  registrations_.clear();
  for (const nlohmann::json &kept : state.at("registrations")) {
    registrations_.push_back({kept.at("nexus").get<Nexus>(), kept.at("key").get<std::uint64_t>()});
  }
  reservation_.reset();
  if (const auto &kept = state.at("reservation"); !kept.is_null()) {
    reservation_ = {static_cast<ReservationType>(kept.at("type").get<std::uint8_t>()),
                    kept.at("holder").get<Nexus>()};
  }
  generation_ = state.at("generation").get<std::uint32_t>();
  through_power_loss_ = state.at("through_power_loss").get<bool>();
}

// --- PERSISTENT RESERVE IN ---

Bytes Reservations::in(std::span<const std::uint8_t> cdb) const {
  switch (cdb[1] & service_action_bits) {
    case read_keys:
      return keys();
    case read_reservation:
      return reservation();
    case report_capabilities:
      return capabilities();
    default:
      refuse(invalid_field_in_cdb);
  }
}

Bytes Reservations::keys() const {
  constexpr std::size_t key_size = 8;
  Bytes data = list_with_header(generation_, registrations_.size() * key_size);
  std::uint8_t *position = data.data() + in_header_size;
  for (const Registration &registration : registrations_) {
    kzddl::store_be64(position, registration.key);
    position += key_size;
  }
  return data;
}

Bytes Reservations::reservation() const {
  constexpr std::size_t descriptor_size = 16;
  Bytes data = list_with_header(generation_, reservation_ ? descriptor_size : 0);
  if (!reservation_) return data;
  // A reservation of all registrants has no holder whose key could be told.
  if (!is_all_registrants(reservation_->type)) {
    kzddl::store_be64(&data[8], key_of(reservation_->holder).value_or(0));
  }
  data[21] = static_cast<std::uint8_t>(reservation_->type);
  return data;
}

Bytes Reservations::capabilities() const {
  constexpr std::uint8_t persist_through_power_loss_capable = 0x01;
  constexpr std::uint8_t type_mask_valid = 0x80;
  constexpr std::uint8_t test_unit_ready_is_allowed = 0x10;
  constexpr std::uint16_t all_types = 0xEA01;
  Bytes data(8);
  kzddl::store_be16(&data[0], static_cast<std::uint16_t>(data.size()));
  data[2] = persist_through_power_loss_capable;
  data[3] = static_cast<std::uint8_t>(type_mask_valid | test_unit_ready_is_allowed |
                                      (through_power_loss_ ? 1 : 0));
  kzddl::store_be16(&data[4], all_types);
  return data;
}

}  // namespace sim
