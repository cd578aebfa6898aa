// What the fuzz targets make of their input: strings as a host program's.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <string>

#include "fuzz/require.h"
#include "kzddl/ddlts.h"

namespace fuzz {

/// Text without a NUL inside. Neither it nor the value of the pair that it may be passes for a
/// typed string: whoever hands over one of those vouches for its length.
inline std::string text(FuzzedDataProvider &input, std::size_t longest) {
  std::string s = input.ConsumeRandomLengthString(longest);
  s = s.c_str();
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == KZDDL_TS_MARKER && (i == 0 || s[i - 1] == '=')) s[i] = ' ';
  }
  return s;
}

/// A typed string: any type that can be built, any payload.
inline std::string typed(FuzzedDataProvider &input) {
  const auto type = input.ConsumeIntegralInRange<std::uint32_t>(0, KZDDL_TS_MAX_TYPE);
  const std::string payload = input.ConsumeRandomLengthString(KZDDL_TS_MAX_PAYLOAD);
  std::string s = {KZDDL_TS_MARKER, static_cast<char>(type), static_cast<char>(payload.size())};
  return s + payload;
}

/// Either of the two.
inline std::string value(FuzzedDataProvider &input, std::size_t longest) {
  return input.ConsumeBool() ? typed(input) : text(input, longest);
}

}  // namespace fuzz
