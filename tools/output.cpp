#include "tools/output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

#include "tools/error.h"
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

void require_no_terminal() {
  if (isatty(STDOUT_FILENO) == 1)
    throw Error::usage("raw bytes are not for a terminal: redirect standard output");
}

void print_bytes(ByteSpan bytes, ByteFormat format, const std::string &subject) {
  if (format == ByteFormat::raw) {
    require_no_terminal();
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  } else {
    print_text(
        fmt::format("# {}; {}.\n{}", subject, counted(bytes.size(), "byte"), hex_lines(bytes)));
  }
}

}  // namespace tool
