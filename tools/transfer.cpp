#include "tools/transfer.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

#include "tools/error.h"

namespace tool {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 1s;  ///< without a word of progress
constexpr auto line_period = 200ms;
constexpr char erase_line[] = "\r\033[K";

}  // namespace

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
  std::fputs(fmt::format("{}{} {}: {}{}", erase_line, operation_, disk_.name(), size(done_), whole)
                 .c_str(),
             stderr);
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
