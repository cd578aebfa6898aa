// Inquiry data, its printers, and the helpers that take texts out of it.
#include "fuzz/input.h"
#include "kzddl/kzinquiry.h"
#include "kzddl/kzmisc_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size > 255) return 0;
  const auto length = static_cast<int>(size);
  const auto standard = fuzz::block(data, size, length > 36 ? 48 : 36);
  decode_inquiry_data(standard.data(), length);
  const auto answer = fuzz::block(data, size, size);
  dump_inquiry_data(answer.data(), length);

  const int room = size != 0 ? data[0] : 0;
  std::vector<char> text(static_cast<std::size_t>(room));
  const int digits = binhex_copy(text.data(), answer.data(), length, room);
  fuzz::require(digits == (2 * length < room ? 0 : -1));
  bascii_copy(text.data(), answer.data(), length, room);
  if (length >= 36) {
    std::vector<char> revision(5);
    get_revno_from_inqdata(answer.data(), revision.data());
  }
  std::string s(answer.begin(), answer.end());
  do_remove_space(s.data());
  print_field(s.data(), length);
  return 0;
}
