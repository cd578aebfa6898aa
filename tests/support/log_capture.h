// What the library writes to its diagnostic log.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace kzddl_test {

/// While it lives, the log goes to a file of its own. Captures nest.
class LogCapture {
 public:
  LogCapture() {
    const int file = mkstemp(name_.data());
    EXPECT_GE(file, 0) << name_;
    close(file);
    if (const char *outer = std::getenv("KZ_DEBUG_FILE")) outer_ = outer;
    setenv("KZ_DEBUG_FILE", name_.c_str(), 1);
  }
  ~LogCapture() {
    if (outer_.empty()) {
      unsetenv("KZ_DEBUG_FILE");
    } else {
      setenv("KZ_DEBUG_FILE", outer_.c_str(), 1);
    }
    unlink(name_.c_str());
  }
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;

  /// Everything written so far.
  std::string text() const {
    std::ifstream file(name_);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::string name_ = testing::TempDir() + "kzddl-log-XXXXXX";
  std::string outer_;
};

}  // namespace kzddl_test
