#include "capture/capture.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

namespace capture {
namespace {

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// A file of text is hexadecimal by intent, even where it is mistaken; a raw reply holds
/// control characters. A comment may be in any language.
bool is_text(std::string_view content) {
  bool in_comment = false;
  for (const char c : content) {
    if (c == '#' || c == '\n') in_comment = c == '#';
    const bool is_ascii = static_cast<unsigned char>(c) < 0x80;
    const bool is_control = c < 0x20 || c == 0x7F;
    if (is_ascii ? is_control && !is_blank(c) : !in_comment) return false;
  }
  return true;
}

std::string read_all(const std::string &path) {
  if (path == "-") return {std::istreambuf_iterator<char>(std::cin), {}};
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Error(path + ": " + std::strerror(errno));
  try {
    return {std::istreambuf_iterator<char>(file), {}};
  } catch (const std::ios_base::failure &error) {
    throw Error(path + ": " + error.code().message());
  }
}

Bytes parse_file(const std::string &path, const std::string &content) {
  try {
    return parse_hex(content);
  } catch (const Error &error) {
    throw Error(path + ": " + error.what());
  }
}

}  // namespace

Bytes parse_hex(std::string_view text) {
  Bytes bytes;
  int line = 1;
  std::size_t line_start = 0;
  const auto fail = [&](std::size_t at, const char *what) {
    throw Error("line " + std::to_string(line) + ", column " + std::to_string(at - line_start + 1) +
                ": " + what);
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\n') {
      ++line;
      line_start = i + 1;
    } else if (c == '#') {
      i = text.find('\n', i);
      if (i == std::string_view::npos) break;
      --i;
    } else if (!is_blank(c)) {
      const int high = digit(c);
      if (high < 0) fail(i, "not a hexadecimal digit");
      const int low = i + 1 < text.size() ? digit(text[i + 1]) : -1;
      if (low < 0) fail(i, "a byte takes two hexadecimal digits");
      bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
      ++i;
    }
  }
  return bytes;
}

Bytes load_raw(const std::string &path) {
  const std::string content = read_all(path);
  return {content.begin(), content.end()};
}

Bytes load_hex(const std::string &path) { return parse_file(path, read_all(path)); }

Bytes load(const std::string &path) {
  const std::string content = read_all(path);
  if (is_text(content)) return parse_file(path, content);
  return {content.begin(), content.end()};
}

}  // namespace capture
