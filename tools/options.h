// Options of the command line whose values are numbers or bytes, and help for words to choose from.
#pragma once

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// The number that all of `text` is; nothing for any other text.
template <class Number>
std::optional<Number> parse_whole(std::string_view text, int base = 10) {
  Number number{};
  const char *const text_end = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), text_end, number, base);
  if (error != std::errc{} || end != text_end) return std::nullopt;
  return number;
}

/// An option whose value is a number of 64 bits, decimal or with "0x".
CLI::Option *add_number_option(CLI::App &parser, const std::string &name,
                               const std::string &description, std::optional<std::uint64_t> &value);

/// An option whose value is a byte in hexadecimal.
void add_byte_option(CLI::App &parser, const std::string &name, const std::string &description,
                     std::optional<std::uint8_t> &value);

/// An option whose value is a reservation key, in hexadecimal.
void add_key_option(CLI::App &parser, const std::string &names, const std::string &description,
                    std::optional<std::uint64_t> &key);

/// An option whose value is any number of bytes in hexadecimal.
CLI::Option *add_bytes_option(CLI::App &parser, const std::string &name,
                              const std::string &description, std::vector<std::uint8_t> &bytes);

/// What the rows of a table are called.
template <class Row, std::size_t N>
std::vector<std::string> names_of(const Row (&table)[N]) {
  std::vector<std::string> names;
  for (const Row &row : table)
    names.emplace_back(row.name);
  return names;
}

/// The same with their descriptions, as part of a help text.
template <class Row, std::size_t N>
std::string descriptions_of(const Row (&table)[N]) {
  std::size_t width = 0;
  for (const Row &row : table)
    width = std::max(width, row.name.size());
  std::string text;
  for (const Row &row : table)
    text += fmt::format("  {:<{}}  {}\n", row.name, width, row.description);
  return text;
}

}  // namespace tool
