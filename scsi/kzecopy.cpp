// Target descriptors of EXTENDED COPY: builders and printers.
#include "kzddl/kzecopy.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "base/bytes.h"
#include "base/memory.h"
#include "kzddl/ddlts.h"
#include "scsi/ecopy_label.h"

using namespace kzddl;

namespace {

constexpr std::uint8_t n_port_name = 0xE0;
constexpr std::uint8_t n_port_id = 0xE1;
constexpr std::uint8_t identification = 0xE4;

constexpr int identifier_size = 8;
constexpr int max_designator_size = 20;
constexpr int parms_offset = 28;

/// A descriptor with what all types have in common, or null with a message that names the builder.
Buffer make_descriptor(const char *builder, std::uint8_t type_code, std::uint32_t parms) {
  Buffer td = zeroed_buffer(KZDDL_TARGET_DESCRIPTOR_SIZE);
  if (td == nullptr) {
    std::printf("%s: unable to allocate memory\n", builder);
    return td;
  }
  td[0] = type_code;
  store_be32(&td[parms_offset], parms);
  return td;
}

/// Hands a descriptor, or null, to the caller; returns the builder's result.
int hand_over(Buffer descriptor, unsigned char **td) {
  *td = descriptor.release();
  return *td != nullptr ? 0 : -1;
}

void print_digits(const char *label, const unsigned char *bytes, int n) {
  std::printf("\t%s: ", Label(label).text());
  for (int i = 0; i < n; ++i)
    std::printf("%x", bytes[i]);
}

}  // namespace

int do_td_create_e0(const unsigned char *lun, const unsigned char *port, std::uint32_t parms,
                    unsigned char **td) {
  Buffer descriptor = make_descriptor(__func__, n_port_name, parms);
  if (descriptor != nullptr) {
    std::memcpy(&descriptor[4], lun, identifier_size);
    std::memcpy(&descriptor[12], port, identifier_size);
  }
  return hand_over(std::move(descriptor), td);
}

int do_td_create_e1(const unsigned char *lun, const unsigned char *port, std::uint32_t parms,
                    unsigned char **td) {
  Buffer descriptor = make_descriptor(__func__, n_port_id, parms);
  if (descriptor != nullptr) {
    std::memcpy(&descriptor[4], lun, identifier_size);
    std::memcpy(&descriptor[21], port, identifier_size - 1);
  }
  return hand_over(std::move(descriptor), td);
}

int do_td_create_e4(unsigned char code_set, unsigned char type, unsigned char length,
                    const unsigned char *id, std::uint32_t parms, unsigned char **td) {
  *td = nullptr;
  if (length > max_designator_size) return -1;
  Buffer descriptor = make_descriptor(__func__, identification, parms);
  if (descriptor != nullptr) {
    descriptor[4] = code_set & 0x0F;
    descriptor[5] = type & 0x0F;
    descriptor[7] = length;
    copy_bytes(&descriptor[8], id, length);
  }
  return hand_over(std::move(descriptor), td);
}

int do_td_print(const unsigned char *td, int size) {
  std::printf("\tTarget Descriptor Raw data size %x\n", static_cast<unsigned>(size));
  for (int i = 0; i < size; ++i)
    std::printf("\t\tByte %2d : 0x%x\t%c\n", i, td[i], td[i]);
  return 0;
}

int do_display_target_desc(const char *name, const unsigned char *td) {
  std::printf("\t%s: %s\n", Label("Target Descriptor data for").text(), name);
  print_hex_field("Type code", td[0]);
  print_hex_field("Device type", td[1] & 0x1F);
  switch (td[0]) {
    case n_port_name:
      print_digits("LU ID ", td + 4, identifier_size);
      print_digits("World Wide Name", td + 12, identifier_size);
      std::putchar('\n');
      break;
    case identification:
      print_hex_field("Code set", td[4] & 0x0F);
      print_hex_field("Identifitcaion type", td[5] & 0x0F);
      print_hex_field("Identifier length", td[7]);
      // A descriptor from elsewhere may announce more than it holds.
      print_digits("Identification", td + 8, std::min<int>(td[7], max_designator_size));
      std::putchar('\n');
      break;
    default:
      std::printf("\t Targey descriptor type %x is not supported.\n", td[0]);
      break;
  }
  print_digits("Device type specific parms", td + parms_offset, 4);
  std::putchar('\n');
  return 0;
}

int padstring(const char *text, char *dst, int width) {
  pad(text, dst, width);
  return 0;
}

std::int32_t do_ts_tostring(const char *s, char **out) { return ts_tostring(s, out); }

void do_ts_print(const char *s) { ts_print(s); }

std::int32_t do_ts_build(std::uint32_t type, std::uint32_t len, const void *data, char **out) {
  return ts_build(type, len, data, out);
}
