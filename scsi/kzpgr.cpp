// PERSISTENT RESERVE OUT and IN, by the legacy request, with results of their own.
#include "kzddl/kzpgr.h"

#include <algorithm>
#include <cstddef>

#include "base/bytes.h"
#include "scsi/frame.h"
#include "scsi/status.h"

using namespace kzddl;

static_assert(sizeof(pgr_out_param) == 24);
static_assert(offsetof(pgr_out_param, service_action_key) == 8);
static_assert(offsetof(pgr_out_param, scope_address) == 16);
static_assert(offsetof(pgr_out_param, flags) == 20);
static_assert(offsetof(pgr_in_data, data) == 8);
static_assert(sizeof(pgr_in_data) == 12);

namespace {

constexpr OpenFlags flags{.direct = O_RDONLY | O_NONBLOCK, .indirect = O_NONBLOCK};

constexpr std::uint32_t reply_header_size = 8;
// The second pass asks for four bytes more than the reply has.
constexpr std::uint32_t reply_overhead = reply_header_size + 4;
constexpr std::uint32_t max_additional_length = 0xFFFF - reply_overhead;

constexpr std::uint64_t buffer_overhead =
    LegacyRequest::header_size + sizeof(Cdb<10>) + LegacyRequest::spare_size;
constexpr std::uint64_t out_buffer_size = buffer_overhead + sizeof(pgr_out_param);
constexpr std::uint64_t in_buffer_overhead = buffer_overhead + reply_overhead;

Cdb<10> pgr_out_cdb(unsigned service_action, unsigned scope, unsigned type) {
  Cdb<10> cdb{opcode::persistent_reserve_out, static_cast<std::uint8_t>(service_action),
              static_cast<std::uint8_t>(scope | type)};
  cdb[8] = sizeof(pgr_out_param);
  return cdb;
}

Cdb<10> pgr_in_cdb(unsigned service_action, std::uint32_t allocation_length) {
  Cdb<10> cdb{opcode::persistent_reserve_in, static_cast<std::uint8_t>(service_action)};
  store_be16(&cdb[7], static_cast<std::uint16_t>(allocation_length));
  return cdb;
}

/// The result code for what the transport returned, with the sense data in the request's reply.
std::uint32_t pgr_get_error(int result, LegacyRequest &request) {
  if (result == 0) return PGR_OK;
  if (result < 0) return PGR_ERROR;
  switch (status_code(result)) {
    case check_condition: {
      const std::uint8_t *sense = request.reply();
      const bool invalid_operation_code = sense[2] == 0x05 && sense[12] == 0x20 && sense[13] == 0;
      return invalid_operation_code ? PGR_UNSUPPORTED : PGR_CHECK_CONDITION;
    }
    case reservation_conflict:
      return PGR_CONFLICT;
    default:
      return PGR_ERROR;
  }
}

std::uint32_t pgr_out(const Route &route, unsigned service_action, unsigned scope, unsigned type,
                      const pgr_out_param &param) {
  if (!route) return PGR_ERROR;
  LegacyRequest request(out_buffer_size);
  if (!request) return PGR_NOMEM;
  request.prepare(pgr_out_cdb(service_action, scope, type), sizeof param, 0);
  std::memcpy(request.sent(), &param, sizeof param);
  store_be32(request.sent() + offsetof(pgr_out_param, scope_address), param.scope_address);
  return pgr_get_error(route.send(request), request);
}

/// One pass: asks for a reply with `additional_length` bytes behind its header.
std::uint32_t read_reply(const Route &route, unsigned service_action,
                         std::uint32_t additional_length, LegacyRequest &request) {
  if (!request) return PGR_NOMEM;
  const std::uint32_t allocation_length = additional_length + reply_overhead;
  request.prepare(pgr_in_cdb(service_action, allocation_length), 0, allocation_length);
  return pgr_get_error(route.send(request), request);
}

std::uint32_t pgr_in(const Route &route, unsigned service_action, pgr_in_data **result) {
  *result = nullptr;
  if (!route) return PGR_ERROR;
  std::uint32_t length = 0;
  {
    LegacyRequest first(in_buffer_overhead);
    const std::uint32_t error = read_reply(route, service_action, 0, first);
    if (error != PGR_OK) return error;
    length = std::min(load_be32(first.reply() + 4), max_additional_length);
  }
  LegacyRequest second(in_buffer_overhead + length);
  const std::uint32_t error = read_reply(route, service_action, length, second);
  if (error != PGR_OK) return error;

  // With its spare bytes as long as what was asked for.
  static_assert(sizeof(pgr_in_data) == reply_overhead);
  Owned<pgr_in_data> block = zeroed_record<pgr_in_data>(length);
  if (block == nullptr) return PGR_NOMEM;
  block->generation = load_be32(second.reply());
  block->length = length;
  copy_bytes(block->data, second.reply() + reply_header_size, length);
  *result = block.release();
  return PGR_OK;
}

}  // namespace

std::uint32_t do_pgr_out(odh *path, unsigned service_action, unsigned scope, unsigned type,
                         pgr_out_param *param) {
  return dispatch([&](Generation generation) {
    return pgr_out(Route(generation, *path, flags), service_action, scope, type, *param);
  });
}

std::uint32_t do_pgr_out_35(odh *path, unsigned service_action, unsigned scope, unsigned type,
                            pgr_out_param *param) {
  return pgr_out(Route(Generation::indirect, *path, flags), service_action, scope, type, *param);
}

std::uint32_t do_pgr_out_32(const char *node, unsigned service_action, unsigned scope,
                            unsigned type, pgr_out_param *param) {
  return pgr_out(Route(node, flags.direct), service_action, scope, type, *param);
}

std::uint32_t do_pgr_in(odh *path, unsigned service_action, pgr_in_data **result) {
  return dispatch([&](Generation generation) {
    return pgr_in(Route(generation, *path, flags), service_action, result);
  });
}

std::uint32_t do_pgr_in_35(odh *path, unsigned service_action, pgr_in_data **result) {
  return pgr_in(Route(Generation::indirect, *path, flags), service_action, result);
}

std::uint32_t do_pgr_in_32(const char *node, unsigned service_action, pgr_in_data **result) {
  return pgr_in(Route(node, flags.direct), service_action, result);
}
