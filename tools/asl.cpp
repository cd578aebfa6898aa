#include "tools/asl.h"

#include <dlfcn.h>

#include <filesystem>

#include "kzddl/ddlproperty_dynamic.h"
#include "kzddl/kzmisc_geometry.h"
#include "tools/error.h"
#include "tools/property.h"

namespace tool {
namespace {

/// What a library offers. The handler record may be missing.
struct Library {
  get_dynamic_attr_fn entry;
  void *handler;
};

/// The message names the file.
[[noreturn]] void refuse() { throw Error::usage(fmt::format("library {}", dlerror())); }

/// Never unloaded: the database keeps addresses in it.
Library load(const std::string &file) {
  // As a path, so that no search begins.
  void *module = dlopen(std::filesystem::absolute(file).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) refuse();
  const auto entry = reinterpret_cast<get_dynamic_attr_fn>(dlsym(module, "get_dynamic_attr"));
  if (entry == nullptr) refuse();
  const auto get_handler = reinterpret_cast<void *(*)()>(dlsym(module, "get_handler"));
  return {entry, get_handler != nullptr ? get_handler() : nullptr};
}

}  // namespace

void register_library(const std::string &file, const std::string &attribute) {
  const Library library = load(file);
  const Value name(std::filesystem::path(file).stem().string());
  const bool is_stored = !values_of(attribute).empty();
  for (const Value &disk : values_of(KZDDL_PROP_DISK)) {
    if (!is_stored) relate(KZDDL_PROP_DISK, disk, KZDDL_PROP_DYNAMIC, Value(attribute));
    relate(KZDDL_PROP_DISK, disk, KZDDL_PROP_LIBNAME, name);
  }
  relate(KZDDL_PROP_LIBNAME, name, KZDDL_PROP_ENTRY, Value::address_of(library.entry));
  if (library.handler != nullptr) {
    relate(KZDDL_PROP_LIBNAME, name, KZDDL_PROP_HANDLER, Value::address_of(library.handler));
  }
}

void register_geometry() {
  const Value geometry(std::string_view(KZDDL_PROP_GEOMETRY));
  for (const Value &disk : values_of(KZDDL_PROP_DISK)) {
    if (linked(KZDDL_PROP_DISK, disk, KZDDL_PROP_JOX_DEVICE).empty()) continue;
    relate(KZDDL_PROP_DISK, disk, KZDDL_PROP_DYNAMIC, geometry);
    relate(KZDDL_PROP_DYNAMIC, geometry, KZDDL_PROP_ENTRY,
           Value::address_of(&get_dynamic_geometry));
  }
}

}  // namespace tool
