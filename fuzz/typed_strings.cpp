// Typed strings and plain text: built, measured, copied, searched, printed.
#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto type = input.ConsumeIntegral<std::uint32_t>();
  const std::string payload = input.ConsumeRandomLengthString(300);
  char *built = nullptr;
  if (ts_build(type, static_cast<std::uint32_t>(payload.size()), payload.data(), &built) == 0) {
    fuzz::require(ts_len(built) == KZDDL_TS_HEADER_SIZE + payload.size());
    fuzz::require(std::memcmp(built + KZDDL_TS_HEADER_SIZE, payload.data(), payload.size()) == 0);
    ts_print(built);
  }
  std::free(built);

  const std::string value = fuzz::value(input, 600);
  const std::uint32_t length = ts_len(value.c_str());
  fuzz::require(length == value.size());
  std::vector<char> copy(length + 1);
  ts_copy(copy.data(), value.c_str());
  fuzz::require(std::memcmp(copy.data(), value.c_str(), length + 1) == 0);
  const auto separator = input.ConsumeIntegral<char>();
  const char *found = ts_char(value.c_str(), separator);
  fuzz::require(found == nullptr || (*found == separator && found <= value.c_str() + value.size()));
  char *text = nullptr;
  fuzz::require(ts_tostring(value.c_str(), &text) == 0);
  std::free(text);
  ts_print(value.c_str());
  return 0;
}
