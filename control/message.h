// What the service tells its administrator: a line on standard error, which the journal keeps.
#pragma once

#include <fmt/core.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace control {

/// A line that reports what goes wrong.
template <class... Arguments>
void message(fmt::format_string<Arguments...> format, Arguments &&...arguments) {
  // Written in one piece: threads may speak at the same time. The journal takes the number for
  // the line's priority: a warning.
  static const bool to_journal = std::getenv("JOURNAL_STREAM") != nullptr;
  const std::string line = std::string(to_journal ? "<4>" : "") + "kzcontrold: " +
                           fmt::format(format, std::forward<Arguments>(arguments)...) + "\n";
  std::fputs(line.c_str(), stderr);
}

}  // namespace control
