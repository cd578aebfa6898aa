// The description of a simulated array.
#include <unistd.h>

#include "fuzz/input.h"
#include "sim/array.h"

namespace {

/// One file, written anew for every input.
struct File {
  File() {
    std::string name = "/tmp/kzddl-fuzz-XXXXXX";
    descriptor = mkstemp(name.data());
    unlink(name.c_str());
    path = "/proc/self/fd/" + std::to_string(descriptor);
  }
  void write(const std::uint8_t *data, std::size_t size) const {
    fuzz::require(ftruncate(descriptor, 0) == 0 &&
                  pwrite(descriptor, data, size, 0) == static_cast<ssize_t>(size));
  }

  int descriptor;
  std::string path;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const File file;
  file.write(data, size);
  sim::Host host;
  try {
    sim::install_file(host, file.path);
  } catch (const sim::ArrayError &) {
  }
  return 0;
}
