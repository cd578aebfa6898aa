// Typed strings: building, measuring, copying and rendering them.
#include "kzddl/ddlts.h"

#include <cstdlib>
#include <cstring>

#include "base/ascii.h"
#include "base/log.h"
#include "base/memory.h"
#include "kzddl/kzmisc_log.h"
#include "nv/ddlts.h"

using namespace kzddl;

namespace {

constexpr std::uint32_t max_hex_type = 1;

const std::uint8_t *bytes_of(const char *typed) {
  return reinterpret_cast<const std::uint8_t *>(text_of(typed));
}

}  // namespace

std::uint32_t ts_len(const char *s) { return static_cast<std::uint32_t>(value_length(s)); }

void ts_copy(char *dst, const char *src) {
  if (is_typed(src)) {
    const std::size_t length = value_length(src);
    std::memmove(dst, src, length);
    dst[length] = '\0';
  } else {
    std::strcpy(dst, src);
  }
}

char *ts_char(const char *s, std::int32_t c) { return find_in_value(s, c); }

std::int32_t ts_tostring(const char *s, char **out) {
  const bool hexadecimal = is_typed(s) && type_of(s) != KZDDL_TS_TEXT;
  const std::size_t size = !is_typed(s)  ? std::strlen(s)
                           : hexadecimal ? 2 * payload_length(s)
                                         : payload_length(s);
  *out = static_cast<char *>(zeroed_block(size + 1));
  if (*out == nullptr) return -1;

  if (hexadecimal) {
    write_upper_hex(*out, bytes_of(s), payload_length(s));
  } else {
    std::strncpy(*out, is_typed(s) ? text_of(s) : s, size);
  }
  return 0;
}

std::int32_t ts_build(std::uint32_t type, std::uint32_t len, const void *data, char **out) {
  *out = nullptr;
  if (type > KZDDL_TS_MAX_TYPE) {
    ddlmsg(log::facility, log::output, "ts_build: Invalid type %x\n", type);
    return -1;
  }
  if (len > KZDDL_TS_MAX_PAYLOAD) return -1;
  auto *typed = static_cast<char *>(std::malloc(KZDDL_TS_HEADER_SIZE + len + 1));
  if (typed == nullptr) return -1;

  typed[0] = KZDDL_TS_MARKER;
  typed[1] = static_cast<char>(type);
  typed[2] = static_cast<char>(len);
  copy_bytes(typed + KZDDL_TS_HEADER_SIZE, data, len);
  typed[KZDDL_TS_HEADER_SIZE + len] = '\0';
  *out = typed;
  return 0;
}

void ts_print(const char *s) {
  if (!is_typed(s)) {
    ddlmsg(log::facility, log::output, "%s", s);
  } else if (type_of(s) > KZDDL_TS_MAX_TYPE) {
    ddlmsg(log::facility, log::output, "ts_print: Invalid type\n");
  } else if (type_of(s) > max_hex_type) {
    ddlmsg(log::facility, log::output, "%d", text_of(s)[0]);
  } else {
    constexpr char digits[] = "0123456789abcdef";
    for (int i = 0; i < payload_length(s); ++i)
      ddlmsg(log::facility, log::output, "%c%c", digits[bytes_of(s)[i] >> 4],
             digits[bytes_of(s)[i] & 0x0F]);
  }
}
