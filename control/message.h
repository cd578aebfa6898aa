// What the service tells its administrator: a line on standard error, which the journal keeps.
#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <string>

namespace control {

template <class... Arguments>
void message(fmt::format_string<Arguments...> format, Arguments &&...arguments) {
  // In one piece: threads may speak at the same time.
  const std::string line =
      "kzcontrold: " + fmt::format(format, std::forward<Arguments>(arguments)...) + "\n";
  std::fputs(line.c_str(), stderr);
}

}  // namespace control
