// The description of a simulated array.
#include <unistd.h>

#include <string_view>

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
  // A description may name a file that then keeps its blocks, and a fuzzer names any.
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  if (text.find("file") != std::string_view::npos || text.find('\\') != std::string_view::npos) {
    return 0;
  }
  static const File file;
  file.write(data, size);
  sim::Host host;
  try {
    sim::install_file(host, file.path);
  } catch (const sim::ArrayError &) {
  }
  return 0;
}
