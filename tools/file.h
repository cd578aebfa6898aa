// Files and pipes that the tool reads or writes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "tools/text.h"

namespace tool {

/// An open file that the tool reads or writes; "-" is standard input or output.
class File {
 public:
  // Both throw Error (of usage) when the file cannot be opened.
  static File input(const std::string &name) { return {name, false}; }
  static File output(const std::string &name) { return {name, true}; }
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  ~File();

  const std::string &name() const { return name_; }
  /// Bytes that are still to be read, of a regular file.
  std::optional<std::uint64_t> size() const;

  // The rest throw Error. Reads less than asked at the file's end alone.
  std::size_t read(std::span<std::uint8_t> data);
  void write(ByteSpan data);
  void close();

  /// Bytes that were written, also by a write that failed.
  std::uint64_t written() const { return written_; }

 private:
  File(const std::string &name, bool writes);
  [[noreturn]] void fail(std::string_view action) const;

  std::string name_;
  int fd_ = -1;
  bool owned_ = false;
  std::uint64_t written_ = 0;
};

}  // namespace tool
