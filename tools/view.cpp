#include "tools/view.h"

#include <cstdio>

namespace tool {

View with_node(const std::string &node, View view) {
  Json json = {{"node", node}};
  json.update(view.json);
  return {std::move(view.text), std::move(json)};
}

void ViewBuilder::field(std::string label, const char *key, std::string text, Json value) {
  line(std::move(label), std::move(text));
  json_[key] = std::move(value);
}

void ViewBuilder::line(std::string label, std::string text) {
  lines_.emplace_back(std::move(label), std::move(text));
}

void ViewBuilder::size(std::size_t present, std::uint64_t announced) {
  value("length", present);
  value("announced_length", announced);
  value("cut_short", present < announced);
  if (present < announced) append(cut_short_note(present, announced));
}

void print_text(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

void print_json(const Json &json) {
  print_text(json.dump(2, ' ', true, Json::error_handler_t::replace) + "\n");
}

}  // namespace tool
