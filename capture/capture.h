// Captured replies of devices: files of hexadecimal digits with "#" comments, or raw bytes.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace capture {

using Bytes = std::vector<std::uint8_t>;

/// What is wrong with a file, and where.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The bytes of `text`: two digits each, blanks between bytes, comments from "#" to the line's
/// end. Throws Error with the line and column of the mistake.
Bytes parse_hex(std::string_view text);

// The bytes of a file; "-" is standard input. All three throw Error that names the file.

/// Those that it holds.
Bytes load_raw(const std::string &path);
/// Those that its hexadecimal digits tell.
Bytes load_hex(const std::string &path);
/// Hexadecimal when it holds no control characters, else raw: a text that is no hexadecimal is an
/// error.
Bytes load(const std::string &path);

}  // namespace capture
