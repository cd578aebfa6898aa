#include "tools/reservations.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "base/bytes.h"
#include "tools/error.h"
#include "tools/query.h"

namespace tool {
namespace {

constexpr std::string_view operation = "reservations";
constexpr std::size_t key_size = 8;

struct TypeName {
  std::uint8_t code;
  std::string_view word;
  std::string_view words;
};

constexpr TypeName types[] = {
    {1, "write-exclusive", "write exclusive"},
    {3, "exclusive-access", "exclusive access"},
    {5, "we-registrants-only", "write exclusive, registrants only"},
    {6, "ea-registrants-only", "exclusive access, registrants only"},
    {7, "we-all-registrants", "write exclusive, all registrants"},
    {8, "ea-all-registrants", "exclusive access, all registrants"},
};

std::string type_words(std::uint8_t type) {
  const auto *name = find_code(types, type);
  return name ? std::string(name->words) : fmt::format("reserved {:X}h", type);
}

bool is_of_all_registrants(std::uint8_t type) { return type == 7 || type == 8; }

std::string scope_words(std::uint8_t scope) {
  constexpr std::uint8_t logical_unit = 0;
  return scope == logical_unit ? "logical unit" : fmt::format("reserved {:X}h", scope);
}

std::string key_text(std::uint64_t key) { return fmt::format("{:016X}", key); }

constexpr std::size_t header_size = 8;

std::array<std::uint8_t, 10> reserve_cdb(std::uint8_t code, unsigned action, unsigned type,
                                         std::size_t length) {
  std::array<std::uint8_t, 10> cdb{code, static_cast<std::uint8_t>(action),
                                   static_cast<std::uint8_t>(type)};
  kzddl::store_be16(&cdb[7], static_cast<std::uint16_t>(length));
  return cdb;
}

/// Keys or descriptors: whole lists alone, for what is missing may be the holder.
std::vector<std::uint8_t> read_list(Device &device, unsigned action, std::uint32_t &generation) {
  constexpr std::size_t size = header_size + 8190 * key_size;  // what 16 bits hold
  const std::vector<std::uint8_t> reply =
      ask(device, operation, reserve_cdb(opcode::persistent_reserve_in, action, 0, size), size);
  const std::uint64_t announced =
      header_size + (reply.size() < header_size ? 0 : std::uint64_t{kzddl::load_be32(&reply[4])});
  if (reply.size() < announced) {
    throw Error(operation, device.name(),
                fmt::format("the device sent {} of {} bytes", reply.size(), announced));
  }
  generation = kzddl::load_be32(reply.data());
  return {reply.begin() + header_size, reply.begin() + static_cast<std::ptrdiff_t>(announced)};
}

std::vector<std::uint64_t> keys_in(ByteSpan list) {
  std::vector<std::uint64_t> keys;
  for (; list.size() >= key_size; list = list.subspan(key_size))
    keys.push_back(kzddl::load_be64(list.data()));
  return keys;
}

/// Of a logical unit there is one reservation at most.
std::optional<Reservation> reservation_in(ByteSpan list) {
  constexpr std::size_t descriptor_size = 16;
  if (list.size() < descriptor_size) return std::nullopt;
  return Reservation{.key = kzddl::load_be64(list.data()),
                     .type = static_cast<std::uint8_t>(list[13] & 0x0F),
                     .scope = static_cast<std::uint8_t>(list[13] >> 4)};
}

}  // namespace

std::optional<std::uint8_t> reservation_type(std::string_view word) {
  const auto *found = std::ranges::find(types, word, &TypeName::word);
  if (found == std::end(types)) return std::nullopt;
  return found->code;
}

std::string reservation_type_list() {
  std::string list;
  for (const TypeName &type : types) {
    const char *separator = list.empty() ? "" : &type == std::end(types) - 1 ? " or " : ", ";
    list += fmt::format("{}{}", separator, type.word);
  }
  return list;
}

Reservations read_reservations(Device &device) {
  constexpr unsigned read_keys = 0;
  constexpr unsigned read_reservation = 1;
  require_told_outcomes(device, operation);
  Reservations state;
  state.keys = keys_in(read_list(device, read_keys, state.generation));
  state.reservation = reservation_in(read_list(device, read_reservation, state.generation));
  return state;
}

void change_reservations(Device &device, const ReservationChange &change) {
  std::array<std::uint8_t, 24> parameters{};
  kzddl::store_be64(&parameters[0], change.key);
  kzddl::store_be64(&parameters[key_size], change.service_key);
  tell(device, operation,
       reserve_cdb(opcode::persistent_reserve_out, change.action, change.type, parameters.size()),
       parameters);
}

View reservations_view(const Device &device, const Reservations &state) {
  std::vector<std::string> keys;
  for (const std::uint64_t key : state.keys)
    keys.push_back(key_text(key));
  ViewBuilder view(device.name());
  view.value("node", device.name());
  view.field("Generation", "generation", std::to_string(state.generation), state.generation);
  view.field("Keys", "keys", keys.empty() ? "none" : fmt::format("{}", fmt::join(keys, " ")), keys);
  if (!state.reservation) {
    view.field("Reservation", "reservation", "none", nullptr);
    return view.build();
  }
  const auto &[key, type, scope] = *state.reservation;
  view.field("Holder", "reservation",
             is_of_all_registrants(type) ? "all registrants" : key_text(key),
             {{"key", key_text(key)},
              {"type", type_words(type)},
              {"type_code", type},
              {"scope", scope_words(scope)},
              {"scope_code", scope}});
  view.line("Type", type_words(type));
  view.line("Scope", scope_words(scope));
  return view.build();
}

}  // namespace tool
