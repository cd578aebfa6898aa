#include "tools/output.h"

#include <fmt/format.h>

#include <cstdio>

#include "tools/view.h"

namespace tool {

void add_format_options(CLI::App &parser, ByteFormat &format) {
  auto *hex = parser.add_flag_callback(
      "--hex", [&format] { format = ByteFormat::hex; }, "Print the bytes in hexadecimal");
  auto *raw = parser.add_flag_callback(
      "--raw", [&format] { format = ByteFormat::raw; }, "Print the bytes as they are");
  hex->excludes(raw)->option_text(" ");
  raw->option_text(" ");
}

void print_bytes(ByteSpan bytes, ByteFormat format, const std::string &subject) {
  if (format == ByteFormat::raw) {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  } else {
    print_text(
        fmt::format("# {}; {}.\n{}", subject, counted(bytes.size(), "byte"), hex_lines(bytes)));
  }
}

}  // namespace tool
