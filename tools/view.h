// A decoded thing, ready to be shown: as text for people, as JSON for programs.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/text.h"

namespace tool {

using Json = nlohmann::ordered_json;

struct View {
  std::string text;
  Json json;
};

/// The view of what a node answered: its JSON names the node first.
View with_node(const std::string &node, View view);

/// Makes a view field by field: each is a labelled line of the text and a key of the JSON object.
class ViewBuilder {
 public:
  explicit ViewBuilder(std::string title) : title_(std::move(title)) {}

  /// A field that reads the same in both.
  void field(std::string label, const char *key, const std::string &text) {
    field(std::move(label), key, text, text);
  }
  void field(std::string label, const char *key, std::string text, Json value);
  /// Something for programs only.
  void value(const char *key, Json value) { json_[key] = std::move(value); }
  /// Something for people only.
  void line(std::string label, std::string text);
  /// How much of a reply is here; the text says so when it is not all.
  void size(std::size_t present, std::uint64_t announced);
  /// Lines of text behind the fields.
  void append(const std::string &text) { tail_ += text; }

  View build() const { return {title_ + "\n" + labelled(lines_, "  ") + tail_, json_}; }

 private:
  std::string title_;
  std::vector<std::pair<std::string, std::string>> lines_;
  std::string tail_;
  Json json_ = Json::object();
};

/// Null where there is no value.
template <class T>
Json json_or_null(const std::optional<T> &value) {
  return value ? Json(*value) : Json();
}

// To standard output; what cannot be written shows when it is flushed.

void print_text(std::string_view text);
/// With two blanks of indentation.
void print_json(const Json &json);

}  // namespace tool
