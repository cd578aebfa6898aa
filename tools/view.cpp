#include "tools/view.h"

#include <fmt/core.h>

namespace tool {

void ViewBuilder::size(std::size_t present, std::uint64_t announced) {
  value("length", present);
  value("announced_length", announced);
  value("cut_short", present < announced);
  if (present < announced) append(cut_short_note(present, announced));
}

void print_json(const Json &json) {
  fmt::print("{}\n", json.dump(2, ' ', true, Json::error_handler_t::replace));
}

}  // namespace tool
