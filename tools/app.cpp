#include "tools/app.h"

#include <algorithm>
#include <cstdio>

namespace tool {

void Context::report(const Error &error) {
  std::fflush(stdout);
  std::fputs(fmt::format("kzddl: {}\n", error.what()).c_str(), stderr);
  exit_status_ = std::max(exit_status_, error.exit_status());
}

void Context::print(const View &view) const {
  if (json) {
    print_json(view.json);
  } else {
    print_text(view.text);
  }
}

void Context::require_text(std::string_view operation) const {
  if (json)
    throw Error::usage(fmt::format("{}: --json goes with neither --hex nor --raw", operation));
}

void Context::show_each(const std::vector<std::string> &nodes,
                        const std::function<View(Device &)> &view) {
  Json list = Json::array();
  for (const std::string &node : nodes)
    list.push_back(json_or_error(node, view));
  if (json) print_json(list);
}

void Context::show_lines(const std::vector<std::string> &nodes,
                         const std::function<View(Device &)> &view) {
  Columns columns;
  for (const std::string &node : nodes)
    columns.measure({escaped(node), ""});
  show_each(nodes, [&](Device &device) -> View {
    const View shown = view(device);
    return {columns.line(Prefix(""), {device.name(), shown.text}), shown.json};
  });
}

Json Context::json_or_error(const std::string &node, const std::function<View(Device &)> &view) {
  try {
    Device device(node);
    const View shown = view(device);
    if (!json) print_text(shown.text);
    return shown.json;
  } catch (const Error &error) {
    report(error);
    return {{"node", escaped(node)}, {"error", error.reason()}};
  }
}

}  // namespace tool
