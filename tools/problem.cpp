#include "tools/problem.h"

#include <fmt/format.h>

#include <cstdio>

namespace tool {

Json Problem::json() const {
  return {{"operation", operation}, {"reason", reason}, {"sense", sense_json(sense)}};
}

std::string Problem::stored() const {
  if (!sense) return words();
  return fmt::format("{} ({:X}/{:02X}/{:02X})", words(), sense->key, sense->asc, sense->ascq);
}

Problem Problem::from_stored(std::string_view text) {
  std::optional<Sense> sense;
  const std::size_t last = text.rfind(" (");
  unsigned key = 0;
  unsigned asc = 0;
  unsigned ascq = 0;
  if (last != text.npos && text.ends_with(')') &&
      std::sscanf(std::string(text.substr(last)).c_str(), " (%1x/%2x/%2x)", &key, &asc, &ascq) ==
          3) {
    sense = Sense{.key = static_cast<std::uint8_t>(key),
                  .asc = static_cast<std::uint8_t>(asc),
                  .ascq = static_cast<std::uint8_t>(ascq)};
    text = text.substr(0, last);
  }
  const std::size_t colon = text.find(": ");
  return {text.substr(0, colon), text.substr(colon + 2), sense};
}

Json sense_json(const std::optional<Sense> &sense) {
  if (!sense) return nullptr;
  return {{"key", sense->key}, {"asc", sense->asc}, {"ascq", sense->ascq}};
}

}  // namespace tool
