// An answer to MODE SENSE.
#include "fuzz/input.h"
#include "kzddl/kzmodesense.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size > 255) return 0;
  const auto answer = fuzz::block(data, size, size);
  unsigned char *page = nullptr;
  int page_length = 0;
  const auto length = static_cast<int>(size);
  if (get_mode_page_info(answer.data(), length, &page, &page_length) == 0) {
    fuzz::require(page != nullptr && page_length >= 0 && page_length <= length);
  }
  std::free(page);
  decode_mode_sense_data(answer.data(), length);
  dump_mode_sense_data(answer.data(), length);
  return 0;
}
