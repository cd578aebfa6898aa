#include "tools/inquiry.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "base/bytes.h"
#include "kzddl/kzinquiry.h"
#include "tools/error.h"
#include "tools/query.h"
#include "tools/vpd.h"

namespace tool {
namespace {

constexpr std::uint8_t buffer_size = 255;

std::array<std::uint8_t, 6> inquiry_cdb(std::optional<std::uint8_t> page, std::size_t size) {
  std::array<std::uint8_t, 6> cdb{opcode::inquiry, page ? std::uint8_t{1} : std::uint8_t{0},
                                  page.value_or(0)};
  kzddl::store_be16(&cdb[3], static_cast<std::uint16_t>(size));
  return cdb;
}

/// What the library's function reads.
std::vector<std::uint8_t> read_first_bytes(Device &device, std::optional<std::uint8_t> page,
                                           std::string_view operation) {
  const auto family = [&](int *length, unsigned char **data) {
    const int result = do_inquiry(device.path(), page ? 1 : 0, page.value_or(0),
                                  O_RDONLY | O_NONBLOCK, length, data);
    // The length counts the low byte of a page's own length alone; the buffer holds it all.
    if (result == 0 && page) *length = buffer_size;
    return result;
  };
  return ask(device, operation, inquiry_cdb(page, buffer_size), buffer_size, family);
}

/// A page that the library's function cannot read to its end.
std::vector<std::uint8_t> read_long_page(Device &device, std::uint8_t page, std::size_t announced,
                                         std::string_view operation) {
  const std::size_t size = std::min<std::size_t>(announced, 0xFFFF);
  return ask(device, operation, inquiry_cdb(page, size), size, {});
}

}  // namespace

std::vector<std::uint8_t> read_inquiry(Device &device, std::optional<std::uint8_t> page,
                                       std::string_view operation) {
  std::vector<std::uint8_t> reply = read_first_bytes(device, page, operation);
  if (page && reply.size() == buffer_size && VpdPage(reply).cut_short()) {
    reply = read_long_page(device, *page, VpdPage(reply).announced, operation);
  }
  const std::size_t header_size = page ? VpdPage::header_size : standard_inquiry_header_size;
  if (reply.size() < header_size) {
    throw Error(operation, device.name(),
                fmt::format("only {} of {} bytes came", reply.size(), header_size));
  }
  const std::size_t announced = page ? VpdPage(reply).announced : header_size + reply[4];
  reply.resize(std::min(reply.size(), announced));
  return reply;
}

void require_page(const Device &device, ByteSpan reply, std::uint8_t page,
                  std::string_view operation) {
  const std::uint8_t code = VpdPage(reply).code;
  if (code == page) return;
  throw Error(operation, device.name(),
              fmt::format("asked for page {:02X}h, the device sent page {:02X}h", page, code));
}

VpdPages::VpdPages(Device &device) : device_(device), listed_{vpd::supported_pages} {
  const auto list = read(vpd::supported_pages);
  listed_.clear();
  if (!list) return;
  const ByteSpan codes = VpdPage(*list).body;
  listed_.assign(codes.begin(), codes.end());
}

std::optional<std::vector<std::uint8_t>> VpdPages::read(std::uint8_t page) {
  if (std::ranges::find(listed_, page) == listed_.end()) return std::nullopt;
  const std::string operation = fmt::format("inquiry --page {:02x}", page);
  try {
    std::vector<std::uint8_t> reply = read_inquiry(device_, page, operation);
    require_page(device_, reply, page, operation);
    if (VpdPage(reply).cut_short()) {
      throw Error(operation, device_.name(),
                  fmt::format("only {} of {} bytes came", reply.size(), VpdPage(reply).announced));
    }
    return reply;
  } catch (const Error &error) {
    if (error.is_unsupported()) return std::nullopt;
    throw;
  }
}

}  // namespace tool
