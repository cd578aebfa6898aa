// Runs the command line tool as a program and keeps what it wrote.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace kzddl_test {

/// A file in memory.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content = {}) : fd_(memfd_create("tool", MFD_CLOEXEC)) {
    EXPECT_EQ(::write(fd_, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    ::lseek(fd_, 0, SEEK_SET);
  }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;
  ~MemoryFile() { ::close(fd_); }

  int fd() const { return fd_; }

  std::string content() const {
    std::string text(static_cast<std::size_t>(::lseek(fd_, 0, SEEK_END)), '\0');
    EXPECT_EQ(::pread(fd_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    return text;
  }

 private:
  int fd_;
};

struct ToolRun {
  int status = -1;  ///< exit status; -1 when a signal ended it
  std::string out;
  std::string err;
};

/// Starts the tool in this process, which is a child; `locale` decides how trees are drawn.
[[noreturn]] inline void become_tool(std::vector<std::string> &arguments,
                                     const std::string &locale) {
  for (const char *name :
       {"KZSIM", "KZSIM_HOST", "KZSIM_STORE", "KZSIM_HOSTILE", "LD_PRELOAD", "LANGUAGE"})
    ::unsetenv(name);
  ::setenv("LC_ALL", locale.c_str(), 1);
  // The simulated host is preloaded: a sanitizer does not come first.
  const char *options = std::getenv("ASAN_OPTIONS");
  ::setenv("ASAN_OPTIONS",
           (std::string("verify_asan_link_order=0:") + (options != nullptr ? options : "")).c_str(),
           1);
  std::vector<char *> pointers;
  for (std::string &argument : arguments)
    pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  ::execv(KZDDL_TOOL, pointers.data());
  ::_exit(127);
}

inline ToolRun run_tool(std::vector<std::string> arguments, std::string_view input = {},
                        const std::string &locale = "C") {
  arguments.insert(arguments.begin(), "kzddl");
  const MemoryFile in(input), out, err;
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(in.fd(), STDIN_FILENO);
    ::dup2(out.fd(), STDOUT_FILENO);
    ::dup2(err.fd(), STDERR_FILENO);
    become_tool(arguments, locale);
  }
  ToolRun run;
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
  EXPECT_NE(run.status, 127) << KZDDL_TOOL << " does not start";
  run.out = out.content();
  run.err = err.content();
  return run;
}

}  // namespace kzddl_test
