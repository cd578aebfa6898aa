#include "tools/inquiry.h"

#include <fcntl.h>

#include <algorithm>

#include "base/bytes.h"
#include "base/memory.h"
#include "kzddl/kzinquiry.h"
#include "tools/command.h"
#include "tools/error.h"
#include "tools/vpd.h"

namespace tool {
namespace {

constexpr std::size_t buffer_size = 255;

/// The reported length counts the low byte of a page's length alone; the buffer holds more of
/// a longer page.
std::size_t page_size(const std::uint8_t *page) {
  return std::min(VpdPage::header_size + kzddl::load_be16(page + 2), buffer_size);
}

}  // namespace

std::vector<std::uint8_t> read_inquiry(Device &device, std::optional<std::uint8_t> page) {
  int length = 0;
  unsigned char *data = nullptr;
  const int result = do_inquiry(device.path(), page ? 1 : 0, page.value_or(0),
                                O_RDONLY | O_NONBLOCK, &length, &data);
  if (result != 0) throw Error("inquiry", device.name(), result_words(result));
  const kzddl::Buffer owner(data);
  const std::size_t size = page ? page_size(data) : static_cast<std::size_t>(length);
  return {data, data + size};
}

}  // namespace tool
