#include "tools/text.h"

#include <fmt/format.h>
#include <langinfo.h>

#include <algorithm>

#include "base/ascii.h"

namespace tool {
namespace {

constexpr std::size_t bytes_per_line = 16;
constexpr std::size_t escape_size = 4;  // \xNN

std::string_view as_text(ByteSpan bytes) {
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

/// Characters of text, of which all but the first byte of each are continuations.
std::size_t display_width(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

std::string pad(const std::string &text, std::size_t width) {
  return fmt::format("{:<{}}", text, width);
}

/// Where a line of at most `width` characters ends: at a blank that leaves it half full, or
/// before an escape, or right at the edge.
std::size_t line_end(std::string_view text, std::size_t width) {
  const std::size_t blank = text.rfind(' ', width);
  if (blank != std::string_view::npos && blank >= width / 2) return blank;
  const std::size_t escape = text.rfind('\\', width - 1);
  const bool cuts = escape != std::string_view::npos && escape != 0 &&
                    escape + escape_size > width && text.substr(escape, 2) == "\\x";
  return cuts ? escape : width;
}

std::string with_blanks_trimmed(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::string hex_pairs(ByteSpan bytes) {
  return fmt::format("{:02x}", fmt::join(bytes.begin(), bytes.end(), " "));
}

std::string characters(ByteSpan bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    const char c = static_cast<char>(byte);
    text += kzddl::is_printable(c) ? c : '.';
  }
  return text;
}

template <class Line>
std::string lines_of(ByteSpan bytes, const Line &line) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += bytes_per_line) {
    text += line(at, bytes.subspan(at, std::min(bytes_per_line, bytes.size() - at)));
  }
  return text;
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '\\') {
      result += "\\\\";
    } else if (kzddl::is_printable(c)) {
      result += c;
    } else {
      result += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
    }
  }
  return result;
}

std::string escaped(ByteSpan bytes) { return escaped(as_text(bytes)); }

std::string_view trimmed(ByteSpan field) {
  while (!field.empty() && (field.back() == ' ' || field.back() == '\0')) {
    field = field.first(field.size() - 1);
  }
  return as_text(field);
}

std::string field_text(ByteSpan field) { return escaped(trimmed(field)); }

std::string hex(ByteSpan bytes) {
  return fmt::format("{:02X}", fmt::join(bytes.begin(), bytes.end(), ""));
}

std::string hex_lines(ByteSpan bytes) {
  return lines_of(bytes, [](std::size_t, ByteSpan line) { return hex_pairs(line) + "\n"; });
}

std::string hex_dump(ByteSpan bytes) {
  return lines_of(bytes, [](std::size_t at, ByteSpan line) {
    return fmt::format("  {:04x}  {:<47}  {}\n", at, hex_pairs(line), characters(line));
  });
}

std::string counted(std::uint64_t count, std::string_view noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string yes_no(bool value) { return value ? "yes" : "no"; }

std::string cut_short_note(std::size_t present, std::uint64_t announced) {
  return fmt::format("  Cut short: {} of {} are here.\n", present, counted(announced, "byte"));
}

std::vector<std::string> wrapped(std::string_view text, std::size_t width) {
  std::vector<std::string> lines;
  while (text.size() > width) {
    const std::size_t end = line_end(text, width);
    lines.push_back(with_blanks_trimmed(std::string(text.substr(0, end))));
    text.remove_prefix(end);
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  }
  if (!text.empty() || lines.empty()) lines.emplace_back(text);
  return lines;
}

std::string paragraph(const Prefix &prefix, std::string_view text) {
  constexpr std::size_t narrowest = 16;
  const std::size_t taken = std::max(display_width(prefix.first), display_width(prefix.next));
  std::string result;
  for (const std::string &line :
       wrapped(text, std::max(narrowest, screen_width - std::min(screen_width, taken)))) {
    result += with_blanks_trimmed((result.empty() ? prefix.first : prefix.next) + line) + "\n";
  }
  return result;
}

std::string labelled(const std::vector<std::pair<std::string, std::string>> &lines,
                     std::string_view indent) {
  Columns columns;
  for (const auto &[label, text] : lines)
    columns.measure({label, text});
  std::string result;
  for (const auto &[label, text] : lines) {
    result += columns.line(Prefix(std::string(indent)), {label, text});
  }
  return result;
}

void Columns::measure(const Row &row) {
  widths_.resize(std::max(widths_.size(), row.size()));
  for (std::size_t i = 0; i < row.size(); ++i)
    widths_[i] = std::max(widths_[i], row[i].size());
}

std::string Columns::line(const Prefix &prefix, const Row &row) const {
  constexpr std::size_t gap = 2;
  Prefix columns = prefix;
  for (std::size_t i = 0; i + 1 < row.size(); ++i) {
    if (widths_[i] == 0) continue;
    columns.first += pad(row[i], widths_[i] + gap);
    columns.next += std::string(widths_[i] + gap, ' ');
  }
  return paragraph(columns, row.back());
}

std::string Columns::unbroken_line(const Row &row) const {
  std::string text;
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (widths_[i] != 0) text += pad(row[i], widths_[i] + 2);
  }
  return with_blanks_trimmed(text) + "\n";
}

const TreeMarks &tree_marks() {
  static constexpr TreeMarks drawn{"├─ ", "└─ ", "│  ", "   "};
  static constexpr TreeMarks ascii{"|- ", "`- ", "|  ", "   "};
  return std::string_view(nl_langinfo(CODESET)) == "UTF-8" ? drawn : ascii;
}

}  // namespace tool
