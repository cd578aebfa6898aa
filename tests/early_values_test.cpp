// Built with the library's own objects: here a constructor can run before the library's, and what
// it stores must be found later.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kzddl/ddlproperty.h"

namespace {

constexpr int values = 100;  // so many that they have an index

/// Stores them all, again if they are there.
void store() {
  for (int i = 0; i < values; ++i) {
    const std::string text = std::to_string(i);
    const std::array<const char *, 2> one{text.c_str(), nullptr};
    set_property("P", one.data());
  }
}

[[gnu::constructor(101)]] void before_every_other() {
  init_property_list(nullptr);
  store();
}

}  // namespace

int main() {
  store();
  const char **found = nullptr;
  const int n = get_property("P", &found);  // which asserts their number
  std::free(found);
  std::printf("%d values\n", n);
  return n == values ? 0 : 1;
}
