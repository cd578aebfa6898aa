#include "tools/options.h"

#include "capture/capture.h"

namespace tool {
namespace {

/// Takes "0x" away; whether it was there.
bool strip_hex_prefix(std::string_view &text) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  if (is_hex) text.remove_prefix(2);
  return is_hex;
}

template <class Number>
std::optional<Number> parse_hex_number(std::string_view text) {
  strip_hex_prefix(text);
  return parse_whole<Number>(text, 16);
}

std::optional<std::uint64_t> parse_number(std::string_view text) {
  const int base = strip_hex_prefix(text) ? 16 : 10;
  return parse_whole<std::uint64_t>(text, base);
}

/// An option of the first of `names`, whose value is what `parse` makes of its text.
template <class Number, class Parse>
CLI::Option *add_parsed_option(CLI::App &parser, const std::string &names,
                               const std::string &description, std::optional<Number> &value,
                               Parse parse, const char *expected) {
  const auto read = [name = names.substr(0, names.find(',')), &value, parse,
                     expected](const std::string &text) {
    value = parse(text);
    if (!value) throw CLI::ValidationError(name, expected);
  };
  return parser.add_option_function<std::string>(names, read, description);
}

}  // namespace

CLI::Option *add_number_option(CLI::App &parser, const std::string &name,
                               const std::string &description,
                               std::optional<std::uint64_t> &value) {
  return add_parsed_option(parser, name, description, value, parse_number,
                           "expected a number, decimal or with 0x")
      ->option_text("N");
}

void add_byte_option(CLI::App &parser, const std::string &name, const std::string &description,
                     std::optional<std::uint8_t> &value) {
  add_parsed_option(parser, name, description, value, parse_hex_number<std::uint8_t>,
                    "expected a hexadecimal byte, 00 to ff")
      ->option_text("HEX");
}

void add_key_option(CLI::App &parser, const std::string &names, const std::string &description,
                    std::optional<std::uint64_t> &key) {
  add_parsed_option(parser, names, description, key, parse_hex_number<std::uint64_t>,
                    "expected a key of 1 to 16 hexadecimal digits")
      ->option_text("HEX");
}

CLI::Option *add_bytes_option(CLI::App &parser, const std::string &name,
                              const std::string &description, std::vector<std::uint8_t> &bytes) {
  const auto read = [name, &bytes](const std::string &text) {
    try {
      bytes = capture::parse_hex(text);
    } catch (const capture::Error &error) {
      throw CLI::ValidationError(name, error.what());
    }
  };
  return parser.add_option_function<std::string>(name, read, description)->option_text("HEX");
}

}  // namespace tool
