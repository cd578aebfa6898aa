// Blocks between a disk and a file or pipe: what the subcommands read and write share.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "tools/block_io.h"
#include "tools/text.h"
#include "tools/view.h"

namespace tool {

/// Declares an option whose value is a number of 64 bits, decimal or with "0x".
CLI::Option *add_number_option(CLI::App &parser, const std::string &name,
                               const std::string &description, std::optional<std::uint64_t> &value);

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

 private:
  File(const std::string &name, bool writes);
  [[noreturn]] void fail(std::string_view action) const;

  std::string name_;
  int fd_ = -1;
  bool owned_ = false;
};

/// How far a transfer has come: shown on a terminal once it takes long, and counted for messages.
class Progress {
 public:
  Progress(const BlockDevice &disk, std::string operation, std::uint64_t lba,
           std::optional<std::uint64_t> total);
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;
  ~Progress();

  std::uint64_t done() const { return done_; }
  /// The next block.
  std::uint64_t next() const { return lba_ + done_; }
  void add(std::size_t blocks);

  /// Throws Error that says where the transfer stopped, and why.
  [[noreturn]] void stop(std::string_view reason) const;

  /// What was done, when all was.
  View view(const std::string &verb) const;

 private:
  using Clock = std::chrono::steady_clock;

  const BlockDevice &disk_;
  const std::string operation_;
  const std::uint64_t lba_;
  const std::optional<std::uint64_t> total_;
  std::uint64_t done_ = 0;
  const bool on_terminal_;
  Clock::time_point next_line_;
  bool has_line_ = false;
};

}  // namespace tool
