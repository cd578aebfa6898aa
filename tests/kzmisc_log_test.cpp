// The diagnostic log: where a message goes, exactly as formatted.
#include "kzddl/kzmisc_log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

std::string on_standard_error() {
  testing::internal::CaptureStderr();
  errno = EBUSY;
  ddlmsg(0x70000, 9, "%s=%d", "answer", 42);
  EXPECT_EQ(errno, EBUSY);
  return testing::internal::GetCapturedStderr();
}

TEST(Log, GoesToStandardErrorByDefault) {
  unsetenv("KZ_DEBUG_FILE");
  EXPECT_EQ(on_standard_error(), "answer=42");
}

TEST(Log, IsAppendedToTheNamedFile) {
  const std::string file = testing::TempDir() + "kzddl-log-test-" + std::to_string(getpid());
  std::filesystem::remove(file);
  setenv("KZ_DEBUG_FILE", file.c_str(), 1);
  EXPECT_EQ(on_standard_error(), "");
  ddlmsg(0, 0, "\nsecond\n");
  std::ifstream stream(file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "answer=42\nsecond\n");
  std::filesystem::remove(file);
}

TEST(Log, FallsBackWhereTheFileCannotBeOpened) {
  setenv("KZ_DEBUG_FILE", "/nonexistent/folder/log", 1);
  EXPECT_EQ(on_standard_error(), "answer=42");
}

}  // namespace
