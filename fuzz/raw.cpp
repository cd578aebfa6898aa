// Writes the bytes of a captured reply to standard output.
#include <cstdio>

#include "capture/capture.h"

int main(int argc, char **argv) {
  if (argc != 2) return 2;
  try {
    const capture::Bytes bytes = capture::load(argv[1]);
    return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() ? 0 : 1;
  } catch (const capture::Error &error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
