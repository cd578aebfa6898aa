// Identifiers of logical units and cabinets, out of their vital product data.
#include "kzddl/kzmisc_identity.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

#include "base/cancellation.h"
#include "base/designators.h"
#include "base/memory.h"
#include "kzddl/kzinquiry.h"
#include "kzddl/kzmisc_text.h"

using namespace kzddl;

namespace {

constexpr int supported_pages = 0x00;
constexpr int unit_serial_number = 0x80;
constexpr int device_identification = 0x83;

constexpr int page_header_size = 4;

/// A VPD page as the device sent it: `size` bytes, header included.
struct VpdPage {
  Buffer data;
  int size = 0;

  int error = 0;
};

VpdPage read_page(odh *path, int page_code) {
  VpdPage page;
  unsigned char *data = nullptr;
  page.error = do_inquiry(path, 1, page_code, 0, &page.size, &data);
  if (page.error == 0) page.data.reset(data);
  return page;
}

bool lists_page(const VpdPage &page, int page_code) {
  const std::uint8_t *codes = page.data.get() + page_header_size;
  const std::uint8_t *end = page.data.get() + page.size;
  return std::find(codes, end, page_code) != end;
}

/// Does a designator of type `candidate` displace a choice of type `chosen`?
bool is_better(int candidate, int chosen) {
  return candidate <= Designator::naa ? chosen < candidate : chosen > candidate;
}

}  // namespace

std::int32_t get_lun_id(odh *path, int page, char *id, unsigned char *type, const char *fallback) {
  if (page != supported_pages && page != device_identification) return -1;

  const CancellationPutOff uncancelled;
  if (page == supported_pages) {
    const VpdPage list = read_page(path, supported_pages);
    if (list.error != 0) return list.error;
    if (!lists_page(list, device_identification)) return fake_lun_id(fallback, type, id);
  }
  const VpdPage identification = read_page(path, device_identification);
  if (identification.error == 0 &&
      get_lun_id_from_83buf(identification.data.get(), id, type) == 0) {
    return 0;
  }
  return fake_lun_id(fallback, type, id);
}

std::int32_t get_lun_id_from_83buf(const unsigned char *page, char *id, unsigned char *type) {
  *type = KZDDL_NO_DESIGNATOR;
  std::optional<Designator> chosen;
  for_each_designator(page, [&chosen](const Designator &candidate) {
    if (!chosen || is_better(candidate.type(), chosen->type())) chosen = candidate;
  });
  if (!chosen || chosen->length == 0) return -1;
  *type = chosen->type_byte;
  // A cut identifier would name another unit.
  if (chosen->length > chosen->rest.size()) return -1;
  return bascii_copy(id, chosen->rest.data(), chosen->length, KZDDL_LUN_ID_SIZE);
}

std::int32_t fake_lun_id(const char *fallback, unsigned char *type, char *id) {
  const std::size_t length = strnlen(fallback, KZDDL_LUN_ID_SIZE - 1);
  std::memcpy(id, fallback, length);
  id[length] = '\0';
  *type = KZDDL_NO_DESIGNATOR;
  return 0;
}

std::int32_t get_cabinet_id(odh *path, char *serial) {
  const CancellationPutOff uncancelled;
  {
    const VpdPage list = read_page(path, supported_pages);
    if (list.error != 0 || !lists_page(list, unit_serial_number)) return -1;
  }
  std::memset(serial, 0, KZDDL_CABINET_ID_SIZE);
  const VpdPage page = read_page(path, unit_serial_number);
  if (page.error != 0) return -1;
  const int length = page.data[3];
  if (length >= page.size) return -1;
  return bascii_copy(serial, page.data.get() + page_header_size,
                     std::min(length, KZDDL_CABINET_ID_SIZE - 1), KZDDL_CABINET_ID_SIZE);
}

std::uint64_t find_device_number(const char *path) {
  struct stat node;
  if (stat(path, &node) != 0) {
    std::printf("stat failed for the device %s\n", path);
    return ~std::uint64_t{0};
  }
  return node.st_rdev;
}
