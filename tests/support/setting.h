// A number that whoever runs the tests may set in the environment.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace kzddl_test {

inline std::uint64_t setting(const char *variable, std::uint64_t otherwise) {
  const char *text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

}  // namespace kzddl_test
