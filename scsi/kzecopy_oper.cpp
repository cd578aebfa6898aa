// Operating parameters of a copy manager: RECEIVE COPY RESULTS, or mode page 0x0E in its place.
#include "kzddl/kzecopy_oper.h"

#include <algorithm>
#include <cstddef>

#include "base/bytes.h"
#include "kzddl/kzmodesense.h"
#include "scsi/ecopy_label.h"
#include "scsi/frame.h"

using namespace kzddl;

static_assert(offsetof(rcr_oper_parm, max_descriptor_list_length) == 8);
static_assert(offsetof(rcr_oper_parm, max_concurrent_copies) == 28);
static_assert(offsetof(rcr_oper_parm, implemented_descriptor_type_codes) == 33);

namespace {

constexpr std::uint32_t out_length = 255;
constexpr unsigned oflags = O_NONBLOCK;
constexpr std::uint8_t operating_parameters = 0x03;
constexpr int changeable_values = 1;
constexpr int copy_page = 0x0E;

// Where the list of type codes begins, right behind its count; less than all before the count's
// own end is refused.
constexpr int reply_codes_offset = 44;
constexpr int reply_min_size = 43;
constexpr int page_codes_offset = 36;
constexpr int page_min_size = 37;

Cdb<16> rcv_copy_results_cdb(std::uint8_t service_action, std::uint8_t list_id, int alloc_length) {
  Cdb<16> cdb{opcode::receive_copy_results, service_action, list_id};
  store_be32(&cdb[10], static_cast<std::uint32_t>(alloc_length) & 0xFFFFFF);
  return cdb;
}

/// Takes the type codes that lie inside the input and fit the record.
void take_codes(rcr_oper_parm &record, const unsigned char *input, int length, int offset) {
  const int announced = length >= offset ? input[offset - 1] : 0;
  const int held = std::min({announced, length - offset, KZDDL_RCR_MAX_CODES});
  record.implemented_descriptor_list_length = static_cast<std::uint8_t>(std::max(held, 0));
  copy_bytes(record.implemented_descriptor_type_codes, input + offset,
             record.implemented_descriptor_list_length);
}

/// A zeroed record in `*record`, or null with a message that names the conversion.
rcr_oper_parm *make_record(const char *conversion, rcr_oper_parm **record) {
  *record = zeroed_record<rcr_oper_parm>().release();
  if (*record == nullptr) std::printf("%s: unable to allocate memory\n", conversion);
  return *record;
}

}  // namespace

int do_operating_parameters(odh *path, rcr_oper_parm **record) {
  const CancellationPutOff uncancelled;  // a conversion may print
  {
    std::uint32_t length = 0;
    unsigned char *data = nullptr;
    const int error =
        do_rcv_copy_results(path, 0, operating_parameters, 0, out_length, 0, &length, &data);
    const Buffer reply(data);
    if (error == 0 && do_convert_to_rcr_oper_parm(data, static_cast<int>(length), record) == 0) {
      return 0;
    }
  }
  int length = 0;
  unsigned char *data = nullptr;
  int rsvn_conflict = 0;
  const int error =
      do_mode_sense(path, 0, changeable_values, copy_page, &length, &data, &rsvn_conflict);
  if (error != 0) return error;
  const Buffer page(data);
  return do_convert_mode_sense_oper_parm_to_rcr_oper_parm(data, length, record);
}

int do_rcv_copy_results(odh *path, int /*unused1*/, unsigned char service_action,
                        unsigned char list_id, int alloc_length, int /*unused2*/,
                        std::uint32_t *length, unsigned char **data) {
  *length = out_length;
  const Cdb<16> cdb = rcv_copy_results_cdb(service_action, list_id, alloc_length);
  const Route route(DeviceWords::of(*path), oflags);
  LegacyRequest request(LegacyRequest::header_size + cdb.size() + out_length);
  // All 255 bytes are asked for, whatever the CDB says.
  if (const int error = read_legacy(route, cdb, out_length, request); error != 0) return error;
  *length = (request.reply()[3] + 4) & 0xFF;
  return hand_over(duplicate(request.reply(), *length), data);
}

int do_convert_to_rcr_oper_parm(const unsigned char *reply, int length, rcr_oper_parm **record) {
  if (length < reply_min_size) return -1;
  rcr_oper_parm *parm = make_record(__func__, record);
  if (parm == nullptr) return -1;
  parm->available_data = load_be32(reply);
  parm->max_target_descriptor_count = load_be16(reply + 8);
  parm->max_segment_descriptor_count = load_be16(reply + 10);
  parm->max_descriptor_list_length = load_be32(reply + 12);
  parm->max_segment_length = load_be32(reply + 16);
  parm->max_inline_data_length = load_be32(reply + 20);
  parm->held_data_limit = load_be32(reply + 24);
  parm->max_stream_device_transfer_size = load_be32(reply + 28);
  parm->max_concurrent_copies = reply[36];
  parm->data_segment_granularity = reply[37];
  parm->inline_data_granularity = reply[38];
  parm->held_data_granularity = reply[39];
  take_codes(*parm, reply, length, reply_codes_offset);
  return 0;
}

int do_convert_mode_sense_oper_parm_to_rcr_oper_parm(const unsigned char *page, int length,
                                                     rcr_oper_parm **record) {
  constexpr std::uint32_t available_data = 105;
  if (length < page_min_size) return -1;
  rcr_oper_parm *parm = make_record(__func__, record);
  if (parm == nullptr) return -1;
  parm->available_data = available_data;
  parm->max_target_descriptor_count = load_be16(page + 4);
  parm->max_segment_descriptor_count = load_be16(page + 6);
  parm->max_descriptor_list_length = load_be32(page + 8);
  parm->max_segment_length = load_be32(page + 12);
  parm->max_inline_data_length = load_be32(page + 16);
  parm->max_concurrent_copies = page[3];
  parm->data_segment_granularity = page[28];
  parm->inline_data_granularity = page[29];
  parm->held_data_granularity = page[30];
  take_codes(*parm, page, length, page_codes_offset);
  return 0;
}

int do_display_rcv_copy_results_operating_parameters(const char *name, unsigned buflen,
                                                     const rcr_oper_parm *record) {
  std::printf("\t%s: %s, buflen %x\n", Label("\nRCR Operating Parameters").text(), name, buflen);
  print_hex_field("Available Data", record->available_data);
  print_hex_field("Maximum Target Descriptor Count", record->max_target_descriptor_count);
  print_hex_field("Maximum Segment Descriptor Count", record->max_segment_descriptor_count);
  print_hex_field("Maximum Descriptor List Length", record->max_descriptor_list_length);
  print_hex_field("Maximum Segment Length", record->max_segment_length);
  print_hex_field("Maximum Inline Data Length", record->max_inline_data_length);
  print_hex_field("Held Data Limit", record->held_data_limit);
  print_hex_field("Maximum Stream Device Transfer Size", record->max_stream_device_transfer_size);
  print_hex_field("Maximum Concurrent Copies", record->max_concurrent_copies);
  print_hex_field("Data Segement Granularity", record->data_segment_granularity);
  print_hex_field("Inline Data Granularity", record->inline_data_granularity);
  print_hex_field("Held Data Granularity", record->held_data_granularity);
  print_hex_field("Implemented Descriptor List Length", record->implemented_descriptor_list_length);
  std::printf("\t%s: ", Label("Implemented Descriptor Type Codes").text());
  const int codes = std::min<int>(record->implemented_descriptor_list_length, KZDDL_RCR_MAX_CODES);
  for (int i = 0; i < codes; ++i) {
    std::printf("%s0x%x", i == 0 ? "" : ", ", record->implemented_descriptor_type_codes[i]);
  }
  std::printf("\n\t-------Done-------\n");
  return 0;
}
