// A Device Identification page, by both readers.
#include "fuzz/input.h"
#include "kzddl/ddlalua.h"
#include "kzddl/kzmisc_identity.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size < 4) return 0;
  const auto page = fuzz::block(data, size, std::min<std::size_t>(data[3] + 4, 255));

  std::vector<char> naa(KZDDL_NAA_TEXT_SIZE, '?');
  unsigned port_group = 0;
  unsigned relative_port = 0;
  unsigned unit_group = 0;
  fuzz::require(
      get_dev_id_page(page.data(), naa.data(), &port_group, &relative_port, &unit_group) == 0);
  fuzz::require(naa[0] == '?' || std::strlen(naa.data()) == KZDDL_NAA_TEXT_SIZE - 1);

  std::vector<char> id(KZDDL_LUN_ID_SIZE, '?');
  unsigned char type = 0;
  if (get_lun_id_from_83buf(page.data(), id.data(), &type) == 0) {
    fuzz::require(strnlen(id.data(), id.size()) < id.size());
  }
  return 0;
}
