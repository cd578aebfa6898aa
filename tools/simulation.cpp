#include "tools/simulation.h"

#include <link.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "tools/error.h"

namespace tool {
namespace {

constexpr char setting[] = "KZSIM";
constexpr char preload[] = "LD_PRELOAD";
constexpr std::string_view library_name = "libkzsim.so";

Error failure(std::string_view reason) {
  return Error::failure(fmt::format("simulated host: {}", reason));
}

std::filesystem::path library() {
  std::error_code error;
  const auto tool = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw failure("/proc/self/exe: " + error.message());
  return (tool.parent_path() / KZDDL_BIN_TO_LIB / library_name).lexically_normal();
}

bool is_loaded() {
  const auto is_library = [](dl_phdr_info *object, std::size_t, void *) {
    return std::string_view(object->dlpi_name).ends_with(library_name) ? 1 : 0;
  };
  return dl_iterate_phdr(is_library, nullptr) != 0;
}

/// Puts the library before what is preloaded already.
void set_preload(const std::string &path) {
  // What the loader takes for a separator or a variable cannot be escaped.
  if (path.find_first_of(" :$") != std::string::npos) {
    throw failure(path + ": cannot be preloaded (blank, colon or dollar sign in the name)");
  }
  const char *others = std::getenv(preload);
  setenv(preload, others != nullptr ? (path + ":" + others).c_str() : path.c_str(), 1);
}

/// Whether the variable was something else before.
bool change(const char *variable, const std::string &value) {
  if (value.empty()) return false;
  const char *before = std::getenv(variable);
  if (before != nullptr && value == before) return false;
  setenv(variable, value.c_str(), 1);
  return true;
}

std::string absolute(const std::string &name) {
  return name.empty() ? name : std::filesystem::absolute(name).string();
}

}  // namespace

void enter_simulation(const Simulation &simulation, char **argv) {
  // The host reads them as it is loaded: it starts anew when they change.
  const bool other_host = change("KZSIM_HOST", simulation.host);
  const bool other_store = change("KZSIM_STORE", absolute(simulation.store));
  const bool other_devices =
      simulation.hostile && change("KZSIM_HOSTILE", std::to_string(*simulation.hostile));
  const bool is_preset = std::getenv(setting) != nullptr;
  const bool other_array = is_preset && change(setting, absolute(simulation.array));
  if (is_preset) {
    if (!is_loaded()) {
      throw failure(fmt::format("{} is set but {} is not loaded", setting, library_name));
    }
    if (!other_array && !other_host && !other_store && !other_devices) return;
    execv("/proc/self/exe", argv);
    throw failure(std::strerror(errno));
  }
  const std::filesystem::path path = library();
  if (access(path.c_str(), R_OK) != 0) throw failure(path.string() + ": " + std::strerror(errno));
  set_preload(path);
  setenv(setting, simulation.array.empty() ? "1" : absolute(simulation.array).c_str(), 1);
  execv("/proc/self/exe", argv);
  throw failure(std::strerror(errno));
}

}  // namespace tool
