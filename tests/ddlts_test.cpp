// Typed strings: their bytes, and that plain text is taken as the C library takes it.
#include "kzddl/ddlts.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/log_capture.h"

namespace {

using namespace kzddl_test;
using namespace std::string_literals;

/// The bytes of a typed string, terminator included.
std::string built(unsigned type, const std::string &payload) {
  char *typed = nullptr;
  EXPECT_EQ(ts_build(type, payload.size(), payload.data(), &typed), 0);
  std::string bytes(typed, payload.size() + 4);
  std::free(typed);
  return bytes;
}

std::string text(const std::string &s) {
  char *out = nullptr;
  EXPECT_EQ(ts_tostring(s.c_str(), &out), 0);
  std::string made = out;
  std::free(out);
  return made;
}

std::string printed(const std::string &s) {
  LogCapture log;
  ts_print(s.c_str());
  return log.text();
}

TEST(TypedString, IsMarkerTypeLengthPayloadAndTerminator) {
  EXPECT_EQ(built(0, "abc"), "\x1B\0\3abc\0"s);
  EXPECT_EQ(built(7, std::string(255, '\0')), "\x1B\7\xFF"s + std::string(256, '\0'));
  char *empty = nullptr;
  ASSERT_EQ(ts_build(1, 0, nullptr, &empty), 0);
  EXPECT_EQ(std::string(empty, 4), "\x1B\1\0\0"s);
  EXPECT_EQ(ts_len(empty), 3u);
  std::free(empty);
}

TEST(TypedString, OutOfRangeIsNone) {
  const std::string data(256, 'x');
  char something;
  for (const auto &[type, len] : {std::pair{8u, 1u}, {0u, 256u}, {0x18u, 1u}, {0u, ~0u}}) {
    char *typed = &something;
    LogCapture log;
    EXPECT_EQ(ts_build(type, len, data.data(), &typed), -1);
    EXPECT_EQ(typed, nullptr);
    EXPECT_EQ(log.text(), type == 8      ? "ts_build: Invalid type 8\n"
                          : type == 0x18 ? "ts_build: Invalid type 18\n"
                                         : "");
  }
}

TEST(TypedString, RendersAsTextAndAsDigits) {
  const std::string high = built(1, "\x0A\xFF");
  EXPECT_EQ(text(high), "0AFF");
  EXPECT_EQ(printed(high), "0aff");
  EXPECT_EQ(text("\x1B\x80\2\xC3\x01\0"s), "C301");
  EXPECT_EQ(text(built(0, "ab\0cd"s)), "ab");
  EXPECT_EQ(printed(built(0, "ab")), "6162");
  EXPECT_EQ(text(built(7, std::string(255, '\xEF'))).size(), 510u);
  EXPECT_EQ(printed(built(5, "\xFE")), "-2");
  EXPECT_EQ(printed(built(2, "\x7F@")), "127");
  EXPECT_EQ(printed("\x1B\x08\1x\0"s), "ts_print: Invalid type\n");
  EXPECT_EQ(printed("\x1B\x80\1x\0"s), "ts_print: Invalid type\n");
  for (unsigned type = 0; type <= 7; ++type) {
    EXPECT_EQ(text(built(type, "")), "");
    EXPECT_EQ(printed(built(type, "")), type <= 1 ? "" : "0");
  }
}

TEST(TypedString, EndsAtItsSeparatorAlone) {
  const std::string sequence = "\x1B\0\3a,b,\x1B\1\1,\0"s;
  const char *first = sequence.data();
  EXPECT_EQ(ts_char(first, ','), first + 6);
  EXPECT_EQ(ts_char(first + 7, ','), nullptr);
  EXPECT_EQ(ts_char(first + 7, 0), nullptr);
  const std::string high = "\x1B\0\0\xE9"s;  // read as a signed character
  EXPECT_EQ(ts_char(high.data(), 0xE9), nullptr);
  EXPECT_EQ(ts_char(high.data(), -0x17), high.data() + 3);

  char copy[32] = "################";
  ts_copy(copy, first);
  EXPECT_EQ(std::string(copy, 8), "\x1B\0\3a,b\0#"s);
  ts_copy(copy + 2, copy);
  EXPECT_EQ(std::string(copy + 2, 8), "\x1B\0\3a,b\0#"s);
}

TEST(TypedString, PlainTextIsAString) {
  const char *plain = "a,\x1B,";
  EXPECT_EQ(ts_len(plain), 4u);
  EXPECT_EQ(ts_len(""), 0u);
  EXPECT_EQ(ts_char(plain, ','), plain + 1);
  EXPECT_EQ(ts_char(plain, 0), plain + 4);
  EXPECT_EQ(ts_char(plain, '!'), nullptr);
  EXPECT_EQ(text(plain), plain);
  EXPECT_EQ(printed("100%s\n"), "100%s\n");
  char copy[8] = "#######";
  ts_copy(copy, plain);
  EXPECT_EQ(std::string(copy, 7), "a,\x1B,\0##"s);
}

}  // namespace
