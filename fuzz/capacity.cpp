// An answer to READ CAPACITY, and the printer of a capacity.
#include "fuzz/input.h"
#include "kzddl/kzreadcap.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size > 255) return 0;
  const auto answer = fuzz::block(data, size, size);
  dump_read_capacity_data(answer.data(), static_cast<int>(size));
  capacity_record capacity{};
  const auto record = fuzz::block(data, size, sizeof capacity);
  std::memcpy(&capacity, record.data(), sizeof capacity);
  decode_read_capacity_data(&capacity);
  return 0;
}
