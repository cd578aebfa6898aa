#include "tools/query.h"

#include "base/memory.h"
#include "tools/error.h"

namespace tool {

Completion send_past_attention(Device &device, ByteSpan cdb, const Data &data,
                               std::string_view operation) {
  const Completion completion = send_command(device, cdb, data, operation);
  return completion.is_unit_attention() ? send_command(device, cdb, data, operation) : completion;
}

std::vector<std::uint8_t> ask(Device &device, std::string_view operation, ByteSpan cdb,
                              std::size_t size, const Family &family) {
  if (family) {
    int length = 0;
    unsigned char *data = nullptr;
    const int result = family(&length, &data);
    const kzddl::Buffer owner(data);
    if (result == 0) return {data, data + length};
    if (result > 0) throw Error(operation, device.name(), result_words(result));
  }
  std::vector<std::uint8_t> reply(size);
  const Completion completion = send_past_attention(
      device, cdb, {.direction = Data::Direction::from_device, .bytes = reply}, operation);
  if (!completion.ok())
    throw Error(operation, device.name(), completion.reason(), completion.sense);
  reply.resize(completion.transferred);
  return reply;
}

void tell(Device &device, std::string_view operation, ByteSpan cdb, ByteSpan data,
          const std::function<int()> &family) {
  require_told_outcomes(device, operation);
  if (family) {
    const int result = family();
    if (result == 0) return;
    if (result > 0) throw Error(operation, device.name(), result_words(result));
  }
  std::vector<std::uint8_t> copy(data.begin(), data.end());
  const Completion completion = send_past_attention(
      device, cdb, {.direction = Data::Direction::to_device, .bytes = copy}, operation);
  if (completion.ok()) return;
  throw Error(operation, device.name(),
              completion.reason() +
                  (completion.is_unanswered() ? "; it may or may not have been carried out" : ""),
              completion.sense);
}

}  // namespace tool
