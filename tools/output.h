// Bytes on standard output, and the options that say how.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "tools/text.h"

namespace tool {

enum class ByteFormat { decoded, hex, raw };

/// Declares --hex and --raw.
void add_format_options(CLI::App &parser, ByteFormat &format);

/// Throws Error (of usage) where standard output is a terminal: raw bytes could drive it.
void require_no_terminal();

/// Writes bytes as they are, or as a file of captured bytes with `subject` in its comment.
void print_bytes(ByteSpan bytes, ByteFormat format, const std::string &subject);

}  // namespace tool
