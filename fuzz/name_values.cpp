// Name-value pairs and lists: what is built reads back, what is malformed is refused.
#include "fuzz/input.h"
#include "kzddl/ddl_name_value_api.h"

namespace {

/// Values that a pair takes: typed strings.
struct Values {
  explicit Values(FuzzedDataProvider &input) {
    for (std::string &value : strings)
      value = fuzz::typed(input);
    count = input.ConsumeIntegralInRange<std::size_t>(0, 3);
  }
  const char *at(std::size_t i) const { return i < count ? strings[i].c_str() : nullptr; }

  std::string strings[3];
  std::size_t count;
};

void read(const char *pair, char **values, int n) {
  for (int i = 0; i < n; ++i)
    ts_len(values[i]);
  if (n > 0) fuzz::require(values[n] == nullptr);
  char *name = nullptr;
  if (nv_get_name(pair, &name) == 0) fuzz::require(name[0] != '\0');
  nv_free(name);
}

void read(const char *pair) {
  char **values = nullptr;
  const int n = nv_get_value(pair, &values);
  fuzz::require((n > 0) == (values != nullptr));
  read(pair, values, n);
  nv_free(values);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const Values values(input);
  const std::string name = fuzz::text(input, 20);
  const std::string text = fuzz::text(input, 200);
  read(text.c_str());  // whatever a host program hands over

  char *plain = nullptr;
  char *many = nullptr;
  char *more = nullptr;
  nv_set_value(&plain, name.c_str(), text.c_str());
  nv_set_mult_value(&many, name.c_str(), values.at(0), values.at(1), values.at(2), nullptr);
  if (plain != nullptr) read(plain);
  if (many != nullptr && values.count != 0) {
    char **back = nullptr;
    // A name with "=" in it moves where the value begins.
    const int n = nv_get_value(many, &back);
    if (name.find('=') == std::string::npos && n > 0) {
      fuzz::require(static_cast<std::size_t>(n) == values.count);
      for (std::size_t i = 0; i < values.count; ++i) {
        fuzz::require(std::memcmp(back[i], values.strings[i].data(), values.strings[i].size()) ==
                      0);
      }
    }
    nv_free(back);
    nv_append_value(&more, many, values.at(2), values.at(0), nullptr);
    if (more != nullptr) read(more);
  }

  char **list = nullptr;
  char **longer = nullptr;
  nv_create_list(&list, text.c_str(), plain, many, more, nullptr);
  if (list == nullptr && plain != nullptr) nv_create_list(&list, plain, nullptr);
  if (list != nullptr) {
    nv_append_list(&longer, list, many, nullptr);
    nv_print(longer != nullptr ? longer : list);
  }
  for (void *block :
       {static_cast<void *>(plain), static_cast<void *>(many), static_cast<void *>(more),
        static_cast<void *>(list), static_cast<void *>(longer)}) {
    nv_free(block);
  }
  return 0;
}
