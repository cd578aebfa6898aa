// Text for people: bytes of devices made harmless, hexadecimal forms, columns that line up.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

using ByteSpan = std::span<const std::uint8_t>;

/// Columns of a line of output.
inline constexpr std::size_t screen_width = 80;

/// Printable ASCII as it is, a backslash doubled, every other byte as \xNN: what a device says
/// cannot drive a terminal, and can be read back.
std::string escaped(std::string_view text);
std::string escaped(ByteSpan bytes);

/// A text field of SCSI data without the blanks and NULs that pad it.
std::string_view trimmed(ByteSpan field);
/// The same, escaped.
std::string field_text(ByteSpan field);

/// "60014054": two upper-case digits a byte.
std::string hex(ByteSpan bytes);

/// Lines of 16 bytes, "00 1f ...": the form of captured replies.
std::string hex_lines(ByteSpan bytes);

/// Lines of 16 bytes with their offset and their characters.
std::string hex_dump(ByteSpan bytes);

/// "1 path", "2 paths".
std::string counted(std::uint64_t count, std::string_view noun);

/// "yes" or "no".
std::string yes_no(bool value);

/// A code and what it means.
template <class Code>
struct Word {
  Code code;
  std::string_view text;
};

/// The row of a table that has this code; null when none has.
template <class Row, std::size_t N, class Code>
const Row *find_code(const Row (&table)[N], Code code) {
  const Row *const row = std::ranges::find(table, code, &Row::code);
  return row != std::end(table) ? row : nullptr;
}

/// A line that says how much of a reply is missing.
std::string cut_short_note(std::size_t present, std::uint64_t announced);

/// Breaks text into lines of at most `width` characters, at blanks where there are any and
/// never inside an escape. Text that fits stays as it is.
std::vector<std::string> wrapped(std::string_view text, std::size_t width);

/// One line for each (label, text) pair, the texts below each other; long ones are continued.
std::string labelled(const std::vector<std::pair<std::string, std::string>> &lines,
                     std::string_view indent);

/// What a line begins with, and what its continuations begin with.
struct Prefix {
  std::string first;
  std::string next;

  explicit Prefix(const std::string &both) : first(both), next(both) {}
  Prefix(std::string first_line, std::string next_lines)
      : first(std::move(first_line)), next(std::move(next_lines)) {}
};

/// Text behind a prefix, continued on further lines where the screen ends.
std::string paragraph(const Prefix &prefix, std::string_view text);

/// Columns two blanks apart: measure every row first, then write each. A column without a text
/// takes no room. The last column is continued on further lines where the screen ends.
class Columns {
 public:
  using Row = std::vector<std::string>;

  void measure(const Row &row);
  std::string line(const Prefix &prefix, const Row &row) const;
  /// One line, however long.
  std::string unbroken_line(const Row &row) const;

 private:
  std::vector<std::size_t> widths_;
};

/// The strokes of a tree: lines where the locale's character set has them, ASCII elsewhere.
struct TreeMarks {
  std::string_view branch;  ///< to a child that others follow
  std::string_view last;    ///< to the last child
  std::string_view bar;     ///< past a child that others follow
  std::string_view blank;   ///< past the last child
};

const TreeMarks &tree_marks();

}  // namespace tool
