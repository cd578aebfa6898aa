// Names, values, pairs and lists that free themselves.
#pragma once

#include <memory>

#include "kzddl/ddl_name_value_api.h"

namespace kzddl {

struct FreeNameValue {
  void operator()(void *block) const { nv_free(block); }
};

/// Of char: a name, a value or a pair; of char *: an array of them.
template <class T>
using NameValue = std::unique_ptr<T, FreeNameValue>;

}  // namespace kzddl
