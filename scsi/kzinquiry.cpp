// INQUIRY, with the host's cache of standard data, and its printers.
#include "kzddl/kzinquiry.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "scsi/frame.h"

using namespace kzddl;

namespace {

constexpr int data_size = 255;
constexpr int standard_data_kind = 0;

/// What the caller asks, and the flags that the device is opened with for it, either way.
struct Question {
  int evpd;
  int page;
  int oflags;

  OpenFlags flags() const { return {.direct = oflags, .indirect = static_cast<unsigned>(oflags)}; }
};

Cdb<6> inquiry_cdb(const Question &question) {
  return {opcode::inquiry,
          static_cast<std::uint8_t>(question.evpd),
          static_cast<std::uint8_t>(question.page),
          0,
          data_size,
          0};
}

/// Length that the data announce of themselves.
int announced_length(const std::uint8_t *data, int evpd) {
  return evpd == 0 ? data[4] + 5 : data[3] + 4;
}

int inquiry_old(const Route &route, const Question &question, int *len, unsigned char **buf) {
  if (!route) return failure();
  *len = data_size;
  LegacyRequest request(LegacyRequest::header_size + data_size);
  if (const int error = read_legacy(route, inquiry_cdb(question), data_size, request); error != 0) {
    return error;
  }

  const int header_length = question.evpd == 0 ? 5 : 4;
  *len = announced_length(request.reply(), question.evpd);
  if (*len == header_length) return -1;
  *len = std::min(*len, data_size);
  return hand_over(duplicate(request.reply(), data_size), buf);
}

int inquiry(Generation generation, const odh &path, const Question &question, int *len,
            unsigned char **buf) {
  if (ddl_is_arch_ia64() == 1) {
    return inquiry_old(Route(generation, path, question.flags()), question, len, buf);
  }

  const Route route(generation, path, question.flags());
  if (!route) return failure();
  *len = 0;
  Buffer data;
  if (const int error = read_data(route, inquiry_cdb(question), data_size, data); error != 0) {
    return error;
  }

  *len = std::min(announced_length(data.get(), question.evpd), data_size);
  *buf = data.release();
  return 0;
}

ddl_cache_table *cache_hooks() {
  return std::atomic_ref(ddl_cache_ops).load(std::memory_order_acquire);
}

/// Hands over a copy of the standard data that the host has cached for this thread.
bool find_cached(int *len, unsigned char **buf) {
  const ddl_cache_table *hooks = cache_hooks();
  std::int32_t length = 0;
  void *cached = nullptr;
  if (hooks->find_cache(hooks->get_thread_id(), standard_data_kind, &length, &cached) != 0) {
    return false;
  }
  if (length < 0) return false;  // no buffer of that length can be had
  Buffer copy = duplicate(cached, static_cast<std::size_t>(length));
  if (copy == nullptr) return false;
  *len = length;
  *buf = copy.release();
  return true;
}

void offer_to_cache(int len, unsigned char *buf) {
  const ddl_cache_table *hooks = cache_hooks();
  hooks->add_cache(hooks->get_thread_id(), standard_data_kind, len, buf);
}

void print_characters(const char *label, const unsigned char *data, int n) {
  std::printf("%s", label);
  for (int i = 0; i < n; ++i)
    std::putchar(data[i]);
  std::putchar('\n');
}

}  // namespace

int do_inquiry(odh *path, int evpd, int page, int oflags, int *len, unsigned char **buf) {
  const CancellationPutOff uncancelled;  // the cache hooks are the host's
  if (evpd == 0 && find_cached(len, buf)) return 0;
  const int result = dispatch_locked([&](Generation generation) {
    return inquiry(generation, *path, {evpd, page, oflags}, len, buf);
  });
  if (evpd == 0 && result == 0) offer_to_cache(*len, *buf);
  return result;
}

int do_inquiry_32(odh *path, int evpd, int page, int oflags, int *len, unsigned char **buf) {
  return inquiry(Generation::direct, *path, {evpd, page, oflags}, len, buf);
}

int do_inquiry_old(odh *path, int evpd, int page, int oflags, int *len, unsigned char **buf,
                   int indirect) {
  const Question question{evpd, page, oflags};
  return inquiry_old(Route(generation_of(indirect), *path, question.flags()), question, len, buf);
}

void dump_inquiry_data(const unsigned char *data, int len) {
  std::puts("\n--------- Inquiry Data (in raw format)\n");
  for (int i = 0; i < len; ++i)
    std::printf("Byte %2d : 0x%x\t%c\n", i, data[i], data[i]);
}

void decode_inquiry_data(const unsigned char *data, int len) {
  struct Field {
    const char *label;
    unsigned char byte;
    unsigned char shift;
    unsigned char mask;
  };
  static constexpr Field fields[] = {
      {"Peripheral Qualifier/Device Type", 0, 0, 0xFF},
      {"Removable bit", 1, 7, 0x01},
      {"Device type modifier", 1, 0, 0x7F},
      {"ISO Version", 2, 6, 0x03},
      {"ECMA Version", 2, 3, 0x07},
      {"ANSI Version", 2, 0, 0x07},
      {"AEN Capability", 3, 7, 0x01},
      {"Terminat I/O Capability", 3, 6, 0x01},
      {"Additional Length", 4, 0, 0xFF},
      {"Relative Addressing", 7, 7, 0x01},
      {"32 bit I/O", 7, 6, 0x01},
      {"16 bit I/O", 7, 5, 0x01},
      {"Sync capabilities", 7, 4, 0x01},
      {"Linked command", 7, 3, 0x01},
      {"Command Queing", 7, 1, 0x01},
      {"Soft Reset", 7, 0, 0x01},
  };

  std::puts("\n--------- Inquiry Information\n");
  for (const Field &field : fields) {
    std::printf("%s : %x\n", field.label, data[field.byte] >> field.shift & field.mask);
  }
  print_characters("Vendor Identification : ", data + 8, 8);
  print_characters("Product Identification : ", data + 16, 16);
  print_characters("Revision Number : ", data + 32, 4);
  if (len > 36) print_characters("Serial Number : ", data + 36, 12);
}
