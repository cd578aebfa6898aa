#include "fuzz/replies.h"

#include <cstring>
#include <string>

#include "fuzz/require.h"
#include "kzddl/kzddl.h"

namespace fuzz {
namespace {

constexpr std::size_t reply_size = 255;

using Convert = std::int32_t (*)(const unsigned char *, std::int32_t, rcr_oper_parm **);

void convert(Convert convert, const std::vector<std::uint8_t> &reply, std::size_t enough) {
  rcr_oper_parm *record = nullptr;
  const int result = convert(reply.data(), static_cast<int>(reply.size()), &record);
  require((result == 0) == (reply.size() >= enough));
  require((result == 0) == (record != nullptr));
  if (record != nullptr)
    do_display_rcv_copy_results_operating_parameters("/dev/sda", sizeof *record, record);
  std::free(record);
}

}  // namespace

void capacity(const std::uint8_t *data, std::size_t size) {
  if (size > reply_size) return;
  const auto answer = block(data, size, size);
  dump_read_capacity_data(answer.data(), static_cast<int>(size));
  capacity_record capacity{};
  const auto record = block(data, size, sizeof capacity);
  std::memcpy(&capacity, record.data(), sizeof capacity);
  decode_read_capacity_data(&capacity);
}

void copy_limits(const std::uint8_t *data, std::size_t size) {
  if (size > 4096) return;
  const auto reply = block(data, size, size);
  convert(do_convert_to_rcr_oper_parm, reply, 43);
  convert(do_convert_mode_sense_oper_parm_to_rcr_oper_parm, reply, 37);
}

void identification(const std::uint8_t *data, std::size_t size) {
  if (size < 4) return;
  const auto page = block(data, size, std::min<std::size_t>(data[3] + 4, reply_size));

  std::vector<char> naa(KZDDL_NAA_TEXT_SIZE, '?');
  unsigned port_group = 0;
  unsigned relative_port = 0;
  unsigned unit_group = 0;
  require(get_dev_id_page(page.data(), naa.data(), &port_group, &relative_port, &unit_group) == 0);
  require(naa[0] == '?' || std::strlen(naa.data()) == KZDDL_NAA_TEXT_SIZE - 1);

  std::vector<char> id(KZDDL_LUN_ID_SIZE, '?');
  unsigned char type = 0;
  if (get_lun_id_from_83buf(page.data(), id.data(), &type) == 0)
    require(strnlen(id.data(), id.size()) < id.size());
}

void inquiry(const std::uint8_t *data, std::size_t size) {
  if (size > reply_size) return;
  const auto length = static_cast<int>(size);
  const auto standard = block(data, size, length > 36 ? 48 : 36);
  decode_inquiry_data(standard.data(), length);
  unsigned char ansi = 0;
  get_ansi_from_inqdata(standard.data(), &ansi);
  require(ansi <= 7);
  std::vector<char> revision(5, '?');
  get_revno_from_inqdata(standard.data(), revision.data());
  require(strnlen(revision.data(), revision.size()) < revision.size());
  const auto answer = block(data, size, size);
  dump_inquiry_data(answer.data(), length);

  const int room = size != 0 ? data[0] : 0;
  std::vector<char> text(static_cast<std::size_t>(room));
  const int digits = binhex_copy(text.data(), answer.data(), length, room);
  require(digits == (2 * length < room ? 0 : -1));
  bascii_copy(text.data(), answer.data(), length, room);
  std::string s(answer.begin(), answer.end());
  do_remove_space(s.data());
  print_field(s.data(), length);
}

void mode_pages(const std::uint8_t *data, std::size_t size) {
  if (size > reply_size) return;
  const auto answer = block(data, size, size);
  unsigned char *page = nullptr;
  int page_length = 0;
  const auto length = static_cast<int>(size);
  if (get_mode_page_info(answer.data(), length, &page, &page_length) == 0)
    require(page != nullptr && page_length >= 0 && page_length <= length);
  std::free(page);
  decode_mode_sense_data(answer.data(), length);
  dump_mode_sense_data(answer.data(), length);
}

void port_groups(const std::uint8_t *data, std::size_t size) {
  const auto reply = block(data, size, reply_size);
  for (const int group : {0, 1, 2, 256, 0xFFFF, static_cast<int>(size), -1}) {
    const int state = get_owner_state(reply.data(), group);
    require(state >= -1 && state <= 15);
    const int preferred = get_pref_state(reply.data(), group);
    require(state == -1 ? preferred == -1 : preferred == 0 || preferred == 0x80);
    const int other = get_other_pref_state(reply.data(), group);
    require(other == 0 || other == 0x80);
  }
}

}  // namespace fuzz
