// The property database, driven by a program of operations. It asserts its own counters and
// that both halves of every link are there.
#include "fuzz/input.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "kzddl/ddlproperty_dynamic.h"

namespace {

constexpr const char *names[] = {"DISK", "disk", "DYNAMIC", "LIBNAME", "A", "b", "B", "C"};

/// A few values that meet often, and now and then any.
std::string value(FuzzedDataProvider &input) {
  const auto choice = input.ConsumeIntegral<std::uint8_t>();
  return choice != 0 ? "v" + std::to_string(choice % 50) : fuzz::value(input, 300);
}

void discard(int n, const char **array) {
  if (n > 0) std::free(array);
}

void run(FuzzedDataProvider &input) {
  const char *p = input.PickValueInArray(names);
  const char *q = input.PickValueInArray(names);
  const std::string x = value(input);
  const std::string y = value(input);
  const char *const pair[] = {x.c_str(), y.c_str(), nullptr};
  const char **first = nullptr;
  const char **second = nullptr;
  int n = 0;
  switch (input.ConsumeIntegralInRange(0, 11)) {
    case 0:
      create_property(p, 0, 0, 0);
      break;
    case 1:
    case 2:
      set_property_ts(p, pair);
      break;
    case 3:
    case 4:
    case 5:
      set_property(p, pair);
      set_property(q, pair);
      set_asso(p, x.c_str(), q, y.c_str());
      break;
    case 6:
      delete_asso(p, x.c_str(), q, y.c_str());
      break;
    case 7:
      input.ConsumeBool() ? destroy_property(p) : delete_property(p, pair);
      break;
    case 8:
      n = get_property(p, &first);
      discard(n, first);
      break;
    case 9:
      n = get_asso_val(p, x.c_str(), q, &first);
      discard(n, first);
      break;
    case 10:
      n = get_asso(p, x.c_str(), &first, &second);
      discard(n, first);
      discard(n, second);
      break;
    default:
      n = select_asso_val(p, x.c_str(), input.ConsumeIntegralInRange(0U, 6U), q, &first);
      discard(n, first);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  init_property_list(nullptr);
  while (input.remaining_bytes() != 0)
    run(input);
  print_property_list();
  return 0;
}
