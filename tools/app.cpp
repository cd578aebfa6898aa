#include "tools/app.h"

#include <algorithm>
#include <cstdio>

namespace tool {

void Context::report(const Error &error) {
  std::fflush(stdout);
  fmt::print(stderr, "kzddl: {}\n", error.what());
  exit_status_ = std::max(exit_status_, error.exit_status());
}

void Context::print(const View &view) const {
  if (json) {
    print_json(view.json);
  } else {
    fmt::print("{}", view.text);
  }
}

void Context::show_each(const std::vector<std::string> &nodes,
                        const std::function<View(Device &)> &view) {
  Json list = Json::array();
  for (const std::string &node : nodes)
    list.push_back(json_or_error(node, view));
  if (json) print_json(list);
}

Json Context::json_or_error(const std::string &node, const std::function<View(Device &)> &view) {
  try {
    Device device(node);
    const View shown = view(device);
    if (!json) fmt::print("{}", shown.text);
    return shown.json;
  } catch (const Error &error) {
    report(error);
    return {{"node", escaped(node)}, {"error", error.reason()}};
  }
}

}  // namespace tool
