#include "tools/view.h"

#include <fmt/core.h>

namespace tool {

void print_json(const Json &json) {
  fmt::print("{}\n", json.dump(2, ' ', true, Json::error_handler_t::replace));
}

}  // namespace tool
