// The fuzz target for one kind of reply, which KZDDL_REPLY names.
#include "fuzz/replies.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::KZDDL_REPLY(data, size);
  return 0;
}
