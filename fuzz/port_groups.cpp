// A device's list of target port groups, as the library reads it: 255 bytes.
#include "fuzz/input.h"
#include "kzddl/ddlalua.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const auto reply = fuzz::block(data, size, 255);
  for (const int group : {0, 1, 2, 256, 0xFFFF, static_cast<int>(size), -1}) {
    const int state = get_owner_state(reply.data(), group);
    fuzz::require(state >= -1 && state <= 15);
    const int preferred = get_pref_state(reply.data(), group);
    fuzz::require(state == -1 ? preferred == -1 : preferred == 0 || preferred == 0x80);
    const int other = get_other_pref_state(reply.data(), group);
    fuzz::require(other == 0 || other == 0x80);
  }
  return 0;
}
