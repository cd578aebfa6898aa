// Text helpers for fields of SCSI data, and the printing of device information.
#include "kzddl/kzmisc_text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/ascii.h"
#include "base/memory.h"

using namespace kzddl;

static_assert(offsetof(devinfo, product_id) == 9);
static_assert(offsetof(devinfo, revision) == 26);
static_assert(offsetof(devinfo, cabinet_serial) == 31);
static_assert(offsetof(devinfo, port_serial) == 64);
static_assert(offsetof(devinfo, lun_serial) == 192);
static_assert(offsetof(devinfo, scsi_version) == 257);
static_assert(offsetof(devinfo, array_name) == 258);
static_assert(offsetof(devinfo, array_type) == 274);
static_assert(offsetof(devinfo, ownership) == 290);
static_assert(offsetof(devinfo, tpd_flags) == 291);
static_assert(sizeof(devinfo) == 292);

namespace {

/// An identifier with "," cannot stand in a list of values: it is rendered in hexadecimal.
bool is_identifier_text(char c) { return is_printable(c) && c != ','; }

void allocate_field(char **p, std::size_t size, const char *complaint) {
  *p = static_cast<char *>(zeroed_block(size));
  if (*p == nullptr) std::puts(complaint);
}

bool fits_as_hex(std::int32_t len, std::int32_t size) { return 2 * std::int64_t{len} < size; }

}  // namespace

void print_field(const char *field, std::int32_t n) {
  for (std::int32_t i = 0; i < n; ++i)
    std::putchar(static_cast<unsigned char>(field[i]));
  std::putchar('\n');
}

void print_devinfo_fields(const devinfo *rec) {
  std::printf("Vendor ID : ");
  print_field(rec->vendor_id, 8);
  std::printf("Product ID : ");
  print_field(rec->product_id, 16);
  std::printf("Revision number : ");
  print_field(rec->revision, 4);
  std::printf("Cabinet serial number : ");
  print_field(rec->cabinet_serial, sizeof rec->cabinet_serial);
  std::printf("Port serial number : ");
  print_field(rec->port_serial, sizeof rec->port_serial);
  std::printf("LUN serial number : ");
  print_field(rec->lun_serial, sizeof rec->lun_serial);
  // Bounded: these come from other libraries, which may have filled the field whole.
  std::printf("Array name : %.*s\n", static_cast<int>(sizeof rec->array_name), rec->array_name);
  std::printf("Array type : %.*s\n", static_cast<int>(sizeof rec->array_type), rec->array_type);
  std::printf("SCSI version : %d\n", rec->scsi_version);
  std::printf("Ownership : %d\n", rec->ownership);
  std::printf("TPD flags : 0x%x\n", rec->tpd_flags);
}

char *get_revno_from_inqdata(const unsigned char *inq, char *dst) {
  constexpr int revision_offset = 32;
  constexpr int revision_size = 4;
  std::strncpy(dst, reinterpret_cast<const char *>(inq) + revision_offset, revision_size);
  dst[revision_size] = '\0';
  return dst;
}

void alloc_vid_buffer(char **p) { allocate_field(p, KZDDL_VID_SIZE, "malloc for VID failed"); }

void alloc_pid_buffer(char **p) { allocate_field(p, KZDDL_PID_SIZE, "malloc for PID failed"); }

void free_vid_buffer(char *p) { std::free(p); }

void free_pid_buffer(char *p) { std::free(p); }

void strcpy_nb(const char *src, char *dst, std::int32_t size) {
  std::strncpy(dst, src, static_cast<std::size_t>(size) - 1);
  dst[size - 1] = '\0';
  for (std::int32_t i = size - 2; i >= 0 && is_space(dst[i]); --i)
    dst[i] = '\0';
}

std::int32_t do_remove_space(char *s) {
  char *end = s;
  const char *from = s;
  for (; *from != '\0'; ++from) {
    if (!is_space(*from)) *end++ = *from;
  }
  // As if the rest of the string, its NUL included, had been moved for each one.
  const auto removed = static_cast<std::int32_t>(from - end);
  std::memset(end, 0, static_cast<std::size_t>(removed));
  return removed;
}

std::int32_t binhex_copy(char *dst, const unsigned char *src, std::int32_t len, std::int32_t size) {
  if (!fits_as_hex(len, size)) return -1;
  *write_upper_hex(dst, src, len) = '\0';
  return 0;
}

std::int32_t bascii_copy(char *dst, const unsigned char *src, std::int32_t len, std::int32_t size) {
  if (len >= size) return -1;
  std::int32_t n = 0;
  while (n < len && is_identifier_text(static_cast<char>(src[n]))) {
    dst[n] = static_cast<char>(src[n]);
    ++n;
  }
  // A source whose last byte is its terminator counts as text.
  if (n >= len || (n == len - 1 && src[n] == '\0')) {
    dst[n] = '\0';
    return 0;
  }
  return binhex_copy(dst, src, len, size);
}
