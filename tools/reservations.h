// Persistent reservations: who is registered, who holds the logical unit, and in what way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/device.h"
#include "tools/text.h"
#include "tools/view.h"

namespace tool {

struct Reservation {
  std::uint64_t key = 0;  ///< 0 where all registrants hold it
  std::uint8_t type = 0;
  std::uint8_t scope = 0;
};

struct Reservations {
  std::uint32_t generation = 0;
  std::vector<std::uint64_t> keys;
  std::optional<Reservation> reservation;
};

/// Service actions of PERSISTENT RESERVE OUT.
namespace service_action {
inline constexpr std::uint8_t register_key = 0;
inline constexpr std::uint8_t reserve = 1;
inline constexpr std::uint8_t release = 2;
inline constexpr std::uint8_t clear = 3;
inline constexpr std::uint8_t preempt = 4;
inline constexpr std::uint8_t register_and_ignore_existing_key = 6;
}  // namespace service_action

struct ReservationChange {
  std::uint8_t action = 0;
  std::uint64_t key = 0;
  std::uint64_t service_key = 0;
  std::uint8_t type = 0;
};

/// As the command line has them: "write-exclusive", ...; nothing for another word.
std::optional<std::uint8_t> reservation_type(std::string_view word);
/// "write-exclusive, exclusive-access, ... or ...".
std::string reservation_type_list();

/// Both throw Error on failure.
Reservations read_reservations(Device &device);
void change_reservations(Device &device, const ReservationChange &change);

View reservations_view(const Device &device, const Reservations &reservations);

}  // namespace tool
