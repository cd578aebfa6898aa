#include "tools/reservations.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

#include "base/bytes.h"
#include "base/memory.h"
#include "kzddl/kzpgr.h"
#include "tools/error.h"
#include "tools/query.h"

namespace tool {
namespace {

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

/// The family's results have numbers of their own: why it failed is left to the pass-through.
int negated(std::uint32_t result) { return -static_cast<int>(result); }

/// What PERSISTENT RESERVE IN returns, as the device sends it.
int read_raw(Device &device, unsigned action, int *length, unsigned char **data) {
  pgr_in_data *block = nullptr;
  if (const std::uint32_t result = do_pgr_in(device.path(), action, &block); result != PGR_OK) {
    return negated(result);
  }
  const kzddl::Owned<pgr_in_data> owner(block);
  kzddl::Buffer raw = kzddl::zeroed_buffer(header_size + block->length);
  if (raw == nullptr) return negated(PGR_NOMEM);
  kzddl::store_be32(&raw[0], block->generation);
  kzddl::store_be32(&raw[4], block->length);
  kzddl::copy_bytes(&raw[header_size], block->data, block->length);
  *length = static_cast<int>(header_size + block->length);
  *data = raw.release();
  return 0;
}

std::vector<std::uint8_t> read_reply(Device &device, unsigned action) {
  constexpr std::size_t size = 4096;
  std::vector<std::uint8_t> reply = ask(
      device, "reservations", reserve_cdb(opcode::persistent_reserve_in, action, 0, size), size,
      [&](int *length, unsigned char **data) { return read_raw(device, action, length, data); });
  if (reply.size() < header_size) {
    throw Error("reservations", device.name(),
                fmt::format("the device sent {} of {} bytes", reply.size(), header_size));
  }
  return reply;
}

/// Keys or descriptors, as far as they are there.
ByteSpan list_in(ByteSpan reply) {
  const std::size_t announced = kzddl::load_be32(&reply[4]);
  return reply.subspan(header_size, std::min(announced, reply.size() - header_size));
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

/// The result of PERSISTENT RESERVE OUT as tell() takes it. Only what the device refused may be
/// sent again: after any other failure it may have been carried out.
int change_result(std::uint32_t result, const Device &device) {
  switch (result) {
    case PGR_OK:
      return 0;
    case PGR_UNSUPPORTED:
    case PGR_CHECK_CONDITION:
      return negated(result);
    case PGR_CONFLICT:
      throw Error("reservations", device.name(), "RESERVATION CONFLICT");
    case PGR_NOMEM:
      return ENOMEM;
    default: {
      const int error = errno;
      require_control_node(device, "reservations");
      return error != 0 ? error : EIO;
    }
  }
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
  const std::vector<std::uint8_t> keys = read_reply(device, read_keys);
  const std::vector<std::uint8_t> reservation = read_reply(device, read_reservation);
  return {.generation = kzddl::load_be32(reservation.data()),
          .keys = keys_in(list_in(keys)),
          .reservation = reservation_in(list_in(reservation))};
}

void change_reservations(Device &device, const ReservationChange &change) {
  constexpr unsigned logical_unit_scope = 0;
  pgr_out_param parameters{};
  kzddl::store_be64(parameters.key, change.key);
  kzddl::store_be64(parameters.service_action_key, change.service_key);
  const auto *bytes = reinterpret_cast<const std::uint8_t *>(&parameters);
  tell(device, "reservations",
       reserve_cdb(opcode::persistent_reserve_out, change.action, change.type, sizeof parameters),
       {bytes, sizeof parameters}, [&] {
         errno = 0;
         return change_result(
             do_pgr_out(device.path(), change.action, logical_unit_scope, change.type, &parameters),
             device);
       });
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
