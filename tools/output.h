// Bytes on standard output, and the options that say how.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/text.h"

namespace tool {

enum class ByteFormat { decoded, hex, raw };

/// Declares --hex and --raw.
void add_format_options(CLI::App &parser, ByteFormat &format);

/// Declares an option whose value is a byte in hexadecimal.
void add_byte_option(CLI::App &parser, const std::string &name, const std::string &description,
                     std::optional<std::uint8_t> &value);

/// Writes bytes as they are, or as a file of captured bytes with `subject` in its comment.
void print_bytes(ByteSpan bytes, ByteFormat format, const std::string &subject);

}  // namespace tool
