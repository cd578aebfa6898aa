// Text helpers: what fits, what is trimmed, what becomes hexadecimal; exact printed text.
#include "kzddl/kzmisc_text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace kzddl_test {
namespace {

std::string copied_nb(const char *src, int size) {
  std::string dst(static_cast<std::size_t>(size) + 1, '\xEE');
  strcpy_nb(src, dst.data(), size);
  EXPECT_EQ(dst.back(), '\xEE') << "written past the size";
  return dst.c_str();
}

TEST(Text, StrcpyNbTrimsFieldsThatFillTheWidth) {
  EXPECT_EQ(copied_nb("ACME    ", 9), "ACME");
  EXPECT_EQ(copied_nb("ACME    and more", 9), "ACME");
  EXPECT_EQ(copied_nb(" \t\v\f\r\n  ", 9), "");
  EXPECT_EQ(copied_nb("AC  ", 9), "AC  ") << "NUL padding stops the trim";
  EXPECT_EQ(copied_nb("AC\xA0\xA0", 5), "AC\xA0\xA0") << "bytes above 0x7F are not whitespace";
  EXPECT_EQ(copied_nb("x", 1), "");
}

TEST(Text, RemoveSpace) {
  char text[] = " a\tb c\n";
  EXPECT_EQ(do_remove_space(text), 4);
  EXPECT_EQ(std::string(text, sizeof text), std::string("abc\0\0\0\0\0", 8));
  EXPECT_EQ(do_remove_space(text), 0);
  char empty[] = "";
  EXPECT_EQ(do_remove_space(empty), 0);
}

using Copy = std::int32_t (*)(char *, const unsigned char *, std::int32_t, std::int32_t);

/// The copy's text, or "-1".
std::string copied(Copy copy, const std::string &source, int size) {
  std::string dst(static_cast<std::size_t>(size) + 1, '\xEE');
  const auto *bytes = reinterpret_cast<const unsigned char *>(source.data());
  const int result = copy(dst.data(), bytes, static_cast<int>(source.size()), size);
  EXPECT_EQ(dst.back(), '\xEE') << "written past the size";
  return result == 0 ? dst.c_str() : std::to_string(result);
}

TEST(Text, BinhexCopy) {
  const std::string bytes("\x00\xAB\x7F", 3);
  EXPECT_EQ(copied(binhex_copy, bytes, 7), "00AB7F");
  EXPECT_EQ(copied(binhex_copy, bytes, 6), "-1");
  EXPECT_EQ(copied(binhex_copy, "", 1), "");
  char untouched[] = "xyz";
  EXPECT_EQ(binhex_copy(untouched, nullptr, 0x4000'0001, 4), -1) << "2 x len does not wrap";
  EXPECT_STREQ(untouched, "xyz");
  EXPECT_EQ(binhex_copy(untouched, nullptr, -5, 4), 0);
  EXPECT_STREQ(untouched, "");
}

TEST(Text, BasciiCopy) {
  EXPECT_EQ(copied(bascii_copy, "600A0B80", 65), "600A0B80");
  EXPECT_EQ(copied(bascii_copy, "AB,C", 65), "41422C43");
  EXPECT_EQ(copied(bascii_copy, "\x60\x0A\x0B", 65), "600A0B");
  EXPECT_EQ(copied(bascii_copy, std::string("ABC\0", 4), 65), "ABC");
  EXPECT_EQ(copied(bascii_copy, std::string("ABC\0\0", 5), 65), "4142430000");
  EXPECT_EQ(copied(bascii_copy, std::string("\0", 1), 65), "");
  EXPECT_EQ(copied(bascii_copy, std::string("A\0C", 3), 65), "410043");
  EXPECT_EQ(copied(bascii_copy, "\x7F~", 65), "7F7E");
  EXPECT_EQ(copied(bascii_copy, std::string(64, 'x'), 65), std::string(64, 'x'));
  EXPECT_EQ(copied(bascii_copy, std::string(65, 'x'), 65), "-1");
  EXPECT_EQ(copied(bascii_copy, std::string(32, '\xFF'), 65).size(), 64u);
  EXPECT_EQ(copied(bascii_copy, std::string(33, '\xFF'), 65), "-1");
  EXPECT_EQ(copied(bascii_copy, "", 1), "");
}

TEST(Text, RevisionOfInquiryData) {
  unsigned char data[36] = {};
  std::memcpy(data + 32, "R1\0X", 4);
  char revision[6] = "?????";
  EXPECT_EQ(get_revno_from_inqdata(data, revision), revision);
  EXPECT_EQ(std::string(revision, 5), std::string("R1\0\0\0", 5));
}

TEST(Text, IdentificationBuffers) {
  char *vendor = nullptr;
  alloc_vid_buffer(&vendor);
  ASSERT_NE(vendor, nullptr);
  EXPECT_EQ(std::string(vendor, 9), std::string(9, '\0'));
  free_vid_buffer(vendor);
  free_pid_buffer(nullptr);
}

TEST(Text, DeviceInformation) {
  devinfo info{};
  std::memcpy(info.vendor_id, "VENDOR  ", 8);
  std::memcpy(info.product_id, "PRODUCT         ", 16);
  std::memcpy(info.revision, "0100", 4);
  std::strcpy(info.cabinet_serial, "CAB-1");
  std::strcpy(info.port_serial, "PORT-1");
  std::strcpy(info.lun_serial, "LUN-1");
  info.scsi_version = 200;
  std::strcpy(info.array_name, "array");
  std::memset(info.array_type, 'T', sizeof info.array_type);  // no NUL of its own
  info.ownership = -1;
  info.tpd_flags = 0xAB;
  const auto field = [](std::string text, std::size_t width) {
    text.resize(width);
    return text + "\n";
  };
  testing::internal::CaptureStdout();
  print_devinfo_fields(&info);
  print_field("abc", 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Vendor ID : VENDOR  \nProduct ID : PRODUCT         \nRevision number : 0100\n"
            "Cabinet serial number : " +
                field("CAB-1", 33) + "Port serial number : " + field("PORT-1", 128) +
                "LUN serial number : " + field("LUN-1", 65) +
                "Array name : array\nArray type : TTTTTTTTTTTTTTTT\nSCSI version : 200\n"
                "Ownership : -1\nTPD flags : 0xab\n\n");
}

}  // namespace
}  // namespace kzddl_test
