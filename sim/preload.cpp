// Preloaded under a program, the simulated host comes up by itself: KZSIM is "1" for the
// demonstration array, or the name of a JSON file that describes one. KZSIM_HOST and KZSIM_STORE
// say which host it is, and where units keep their state between processes; KZSIM_HOSTILE makes
// every device hostile.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "sim/array.h"

namespace {

[[gnu::constructor]] void start() {
  const char *setting = std::getenv("KZSIM");
  if (setting == nullptr) return;
  sim::Host &host = sim::Host::instance();
  host.stop_recording();
  try {
    const sim::HostSpec spec = sim::HostSpec::from_environment();
    if (std::string_view(setting) == "1") {
      sim::install(host, sim::demo_array(), "x86_64", spec);
    } else {
      sim::install_file(host, setting, spec);
    }
  } catch (const std::exception &error) {
    std::fprintf(stderr, "simulated host: %s\n", error.what());
    _exit(2);
  }
}

}  // namespace
