// MODE SENSE(6), the extraction of mode pages, and printers.
#include "kzddl/kzmodesense.h"

#include <algorithm>
#include <cstdio>

#include "scsi/frame.h"
#include "scsi/status.h"

using namespace kzddl;

namespace {

constexpr OpenFlags flags{.direct = O_RDONLY, .indirect = O_NONBLOCK};
constexpr int answer_size = 255;
constexpr int header_size = 4;
constexpr int descriptor_size = 8;

struct Question {
  int dbd;
  int pc;
  int page;
  int subpage = 0;
};

Cdb<6> mode_sense_cdb(const Question &question) {
  return {opcode::mode_sense_6,
          static_cast<std::uint8_t>(question.dbd * 8),
          static_cast<std::uint8_t>(question.pc << 6 | question.page),
          static_cast<std::uint8_t>(question.subpage),
          answer_size,
          0};
}

int answer_length(const std::uint8_t *answer) { return std::min(answer[0] + 1, answer_size); }

int descriptor_count(const std::uint8_t *answer) { return answer[3] / descriptor_size; }

int mode_sense_old(const Route &route, const Question &question, int *len, unsigned char **buf) {
  if (!route) return failure();
  *len = answer_size;
  LegacyRequest request(LegacyRequest::header_size + answer_size);
  if (const int error = read_legacy(route, mode_sense_cdb(question), answer_size, request);
      error != 0) {
    return error;
  }
  *len = answer_length(request.reply());
  return hand_over(duplicate(request.reply(), answer_size), buf);
}

/// `status`, if given, gets the status byte of a command that was sent.
int mode_sense(const Route &route, const Question &question, int *len, unsigned char **buf,
               std::uint8_t *status = nullptr) {
  if (!route) return failure();
  *len = answer_size;
  Buffer answer;
  const int error = read_data(route, mode_sense_cdb(question), answer_size, answer, status);
  if (error != 0) return error;
  *len = answer_length(answer.get());
  *buf = answer.release();
  return 0;
}

int generic_mode_sense(Generation generation, const odh &path, const Question &question, int *len,
                       unsigned char **buf, int *rsvn_conflict) {
  *rsvn_conflict = 0;
  if (ddl_is_arch_ia64() == 1) {
    return mode_sense_old(Route(generation, path, flags), question, len, buf);
  }
  std::uint8_t status = 0;
  const int result = mode_sense(Route(generation, path, flags), question, len, buf, &status);
  if (status_code(status) == reservation_conflict) *rsvn_conflict = 1;
  return result;
}

void print_byte(const unsigned char *data, int in_part, int offset) {
  std::printf("Byte %2d (#%2d) : 0x%x\n", in_part, offset, data[offset]);
}

/// Prints `size` bytes from `offset` on, up to the data's end; returns the offset behind them.
int print_part(const unsigned char *data, int len, int offset, int size) {
  const int end = std::min(offset + size, len);
  for (int i = offset; i < end; ++i)
    print_byte(data, i - offset, i);
  return end;
}

}  // namespace

int do_mode_sense_raw(odh *path, int dbd, int pc, int page, int *len, unsigned char **buf) {
  int answer_len = 0;
  int rsvn_conflict = 0;
  const int result = dispatch([&](Generation generation) {
    return generic_mode_sense(generation, *path, {dbd, pc, page}, &answer_len, buf, &rsvn_conflict);
  });
  if (result == 0) *len = answer_len;
  return result;
}

int do_mode_sense(odh *path, int dbd, int pc, int page, int *page_len, unsigned char **page_buf,
                  int *rsvn_conflict) {
  int len = 0;
  unsigned char *answer = nullptr;
  const int result = dispatch([&](Generation generation) {
    return generic_mode_sense(generation, *path, {dbd, pc, page}, &len, &answer, rsvn_conflict);
  });
  if (result != 0) return result;
  const Buffer owner(answer);
  return get_mode_page_info(answer, len, page_buf, page_len);
}

int generic_mode_sense_old(odh *path, int dbd, int pc, int page, int *len, unsigned char **buf,
                           int indirect) {
  return mode_sense_old(Route(generation_of(indirect), *path, flags), {dbd, pc, page}, len, buf);
}

int do_mode_sense_raw1(unsigned dev_lo, unsigned dev_hi, int dbd, int pc, int page, int subpage,
                       int *len, unsigned char **buf) {
  if (ddl_is_arch_ia64() == 1) {
    return do_mode_sense_raw1_old(dev_lo, dev_hi, dbd, pc, page, subpage, len, buf);
  }
  return mode_sense(Route(DeviceWords{dev_lo, dev_hi}, flags.indirect), {dbd, pc, page, subpage},
                    len, buf);
}

int do_mode_sense_raw1_old(unsigned dev_lo, unsigned dev_hi, int dbd, int pc, int page, int subpage,
                           int *len, unsigned char **buf) {
  return mode_sense_old(Route(DeviceWords{dev_lo, dev_hi}, flags.indirect),
                        {dbd, pc, page, subpage}, len, buf);
}

int get_mode_page_info(const unsigned char *answer, int len, unsigned char **page_buf,
                       int *page_len) {
  if (len < header_size) return ENOMEM;
  const int skip = header_size + descriptor_size * descriptor_count(answer);
  const int size = len - skip;
  if (size < 0) return ENOMEM;
  const int error = hand_over(duplicate(answer + skip, static_cast<std::size_t>(size)), page_buf);
  if (error == 0) *page_len = size;
  return error;
}

void dump_mode_sense_data(const unsigned char *data, int len) {
  std::puts("\n--------- Mode Sense Data (in raw format)\n");
  for (int i = 0; i < len; ++i)
    std::printf("Byte #%2d : 0x%x\n", i, data[i]);
}

int decode_mode_sense_data(const unsigned char *data, int len) {
  std::puts("\n--------- Mode Sense Information\n");
  std::puts("\n-------- Mode Sense Header");
  print_part(data, len, 0, header_size);
  const int descriptors = len >= header_size ? descriptor_count(data) : 0;
  std::printf("\t\t\t...... Number of block descriptors = %d\n", descriptors);
  int offset = header_size;
  for (int k = 0; k < descriptors; ++k, offset += descriptor_size) {
    std::printf("\n-------- Block Descriptor #%d\n", k);
    print_part(data, len, offset, descriptor_size);
  }
  for (int m = 0; offset < len; ++m) {
    std::printf("\n--------- Mode page : #%d (page code : 0x%x)\n", m, data[offset] & 0x3F);
    const int page_length = offset + 1 < len ? data[offset + 1] : 0;
    offset = print_part(data, len, offset, page_length + 2);
  }
  return offset;
}
