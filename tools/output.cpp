#include "tools/output.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdio>
#include <string_view>

namespace tool {
namespace {

std::uint8_t parse_byte(const std::string &name, std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc{} || end != text.data() + text.size() || value > 0xFF) {
    throw CLI::ValidationError(name, "expected a hexadecimal byte, 00 to ff");
  }
  return static_cast<std::uint8_t>(value);
}

}  // namespace

void add_format_options(CLI::App &parser, ByteFormat &format) {
  auto *hex = parser.add_flag_callback(
      "--hex", [&format] { format = ByteFormat::hex; }, "Print the bytes in hexadecimal");
  auto *raw = parser.add_flag_callback(
      "--raw", [&format] { format = ByteFormat::raw; }, "Print the bytes as they are");
  hex->excludes(raw)->option_text(" ");
  raw->option_text(" ");
}

void add_byte_option(CLI::App &parser, const std::string &name, const std::string &description,
                     std::optional<std::uint8_t> &value) {
  parser
      .add_option_function<std::string>(
          name, [name, &value](const std::string &text) { value = parse_byte(name, text); },
          description)
      ->option_text("HEX");
}

void print_bytes(ByteSpan bytes, ByteFormat format, const std::string &subject) {
  if (format == ByteFormat::raw) {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  } else {
    fmt::print("# {}; {}.\n{}", subject, counted(bytes.size(), "byte"), hex_lines(bytes));
  }
}

}  // namespace tool
