// Runs the command line tool as a program and keeps what it wrote.
#pragma once

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

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

/// Environment of every run; `locale` decides how trees are drawn.
inline std::vector<std::string> tool_environment(const std::string &locale) {
  std::vector<std::string> list = {"LC_ALL=" + locale};
  std::string asan = "ASAN_OPTIONS=verify_asan_link_order=0";  // the simulated host is preloaded
  for (char **entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    if (text.starts_with("ASAN_OPTIONS=")) {
      asan.append(":").append(text.substr(text.find('=') + 1));
    } else if (!text.starts_with("LC_") && !text.starts_with("LANG") &&
               !text.starts_with("KZSIM") && !text.starts_with("LD_PRELOAD=")) {
      list.emplace_back(text);
    }
  }
  list.push_back(asan);
  return list;
}

inline std::vector<char *> pointers(std::vector<std::string> &list) {
  std::vector<char *> result;
  for (std::string &text : list)
    result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

inline ToolRun run_tool(std::vector<std::string> arguments, std::string_view input = {},
                        const std::string &locale = "C") {
  arguments.insert(arguments.begin(), "kzddl");
  std::vector<std::string> environment = tool_environment(locale);
  const MemoryFile in(input);
  const MemoryFile out;
  const MemoryFile err;

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.fd(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out.fd(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err.fd(), STDERR_FILENO);
  pid_t pid = 0;
  const int error = posix_spawn(&pid, KZDDL_TOOL, &actions, nullptr, pointers(arguments).data(),
                                pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  ToolRun run;
  if (error != 0) {
    ADD_FAILURE() << KZDDL_TOOL << " does not start";
    return run;
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
  run.out = out.content();
  run.err = err.content();
  return run;
}

}  // namespace kzddl_test
