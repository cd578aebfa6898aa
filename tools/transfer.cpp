#include "tools/transfer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "tools/error.h"

namespace tool {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 1s;  ///< without a word of progress
constexpr auto line_period = 200ms;
constexpr char erase_line[] = "\r\033[K";

std::uint64_t parse_number(const std::string &name, std::string_view text) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  if (is_hex) text.remove_prefix(2);
  std::uint64_t value = 0;
  const char *const text_end = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), text_end, value, is_hex ? 16 : 10);
  if (error != std::errc{} || end != text_end) {
    throw CLI::ValidationError(name, "expected a number, decimal or with 0x");
  }
  return value;
}

}  // namespace

CLI::Option *add_number_option(CLI::App &parser, const std::string &name,
                               const std::string &description,
                               std::optional<std::uint64_t> &value) {
  return parser
      .add_option_function<std::string>(
          name, [name, &value](const std::string &text) { value = parse_number(name, text); },
          description)
      ->option_text("N");
}

// --- File ---

File::File(const std::string &name, bool writes) : name_(name) {
  if (name == "-") {
    name_ = writes ? "standard output" : "standard input";
    fd_ = writes ? STDOUT_FILENO : STDIN_FILENO;
    return;
  }
  const int flags = writes ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY;
  fd_ = ::open(name.c_str(), flags | O_CLOEXEC, 0666);
  if (fd_ < 0) throw Error::usage(fmt::format("{}: {}", name, std::strerror(errno)));
  owned_ = true;
}

File::~File() {
  if (owned_) ::close(fd_);
}

void File::fail(std::string_view action) const {
  throw Error::failure(fmt::format("{} {}: {}", action, name_, std::strerror(errno)));
}

std::optional<std::uint64_t> File::size() const {
  struct stat status;
  if (::fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const off_t position = ::lseek(fd_, 0, SEEK_CUR);
  return static_cast<std::uint64_t>(std::max<off_t>(0, status.st_size - position));
}

std::size_t File::read(std::span<std::uint8_t> data) {
  std::size_t done = 0;
  while (done < data.size()) {
    const ssize_t n = ::read(fd_, data.data() + done, data.size() - done);
    if (n == 0) break;
    if (n > 0) {
      done += static_cast<std::size_t>(n);
    } else if (errno != EINTR) {
      fail("read");
    }
  }
  return done;
}

void File::write(ByteSpan data) {
  while (!data.empty()) {
    const ssize_t n = ::write(fd_, data.data(), data.size());
    if (n >= 0) {
      data = data.subspan(static_cast<std::size_t>(n));
    } else if (errno != EINTR) {
      fail("write");
    }
  }
}

void File::close() {
  if (!owned_) return;
  owned_ = false;
  if (::close(fd_) != 0) fail("write");
}

// --- Progress ---

Progress::Progress(const BlockDevice &disk, std::string operation, std::uint64_t lba,
                   std::optional<std::uint64_t> total)
    : disk_(disk),
      operation_(std::move(operation)),
      lba_(lba),
      total_(total),
      on_terminal_(::isatty(STDERR_FILENO) == 1),
      next_line_(Clock::now() + patience) {}

Progress::~Progress() {
  if (has_line_) std::fputs(erase_line, stderr);
}

void Progress::add(std::size_t blocks) {
  done_ += blocks;
  if (!on_terminal_ || Clock::now() < next_line_) return;
  const double block_size = static_cast<double>(disk_.block_size());
  const auto size = [block_size](std::uint64_t n) {
    return size_words(static_cast<double>(n) * block_size);
  };
  const std::string whole = total_ ? " of " + size(*total_) : "";
  fmt::print(stderr, "{}{} {}: {}{}", erase_line, operation_, disk_.name(), size(done_), whole);
  std::fflush(stderr);
  has_line_ = true;
  next_line_ = Clock::now() + line_period;
}

void Progress::stop(std::string_view reason) const {
  throw Error(
      operation_, disk_.name(),
      fmt::format("stopped at LBA {}, after {}: {}", next(), counted(done_, "block"), reason));
}

View Progress::view(const std::string &verb) const {
  return {fmt::format(
              "{}: {} {} from LBA {} on, {}\n", disk_.name(), counted(done_, "block"), verb, lba_,
              size_words(static_cast<double>(done_) * static_cast<double>(disk_.block_size()))),
          {{"node", disk_.name()},
           {"lba", lba_},
           {"blocks", done_},
           {"block_size", disk_.block_size()}}};
}

}  // namespace tool
