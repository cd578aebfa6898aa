#include "tools/inquiry.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "kzddl/kzinquiry.h"
#include "tools/error.h"
#include "tools/query.h"
#include "tools/vpd.h"

namespace tool {
namespace {

constexpr std::uint8_t buffer_size = 255;

}  // namespace

std::vector<std::uint8_t> read_inquiry(Device &device, std::optional<std::uint8_t> page,
                                       std::string_view operation) {
  const std::uint8_t evpd = page ? 1 : 0;
  const std::array<std::uint8_t, 6> cdb{opcode::inquiry, evpd, page.value_or(0), 0, buffer_size};
  const auto family = [&](int *length, unsigned char **data) {
    const int result =
        do_inquiry(device.path(), evpd, page.value_or(0), O_RDONLY | O_NONBLOCK, length, data);
    // The length counts the low byte of a page's own length alone; the buffer holds it all.
    if (result == 0 && page) *length = buffer_size;
    return result;
  };
  std::vector<std::uint8_t> reply = ask(device, operation, cdb, buffer_size, family);
  const std::size_t header_size = page ? VpdPage::header_size : standard_inquiry_header_size;
  if (reply.size() < header_size) {
    throw Error(operation, device.name(),
                fmt::format("only {} of {} bytes came", reply.size(), header_size));
  }
  const std::size_t announced = page ? VpdPage(reply).announced : header_size + reply[4];
  reply.resize(std::min(reply.size(), announced));
  return reply;
}

}  // namespace tool
