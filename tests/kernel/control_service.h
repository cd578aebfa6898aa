// The control service as a process of the emulated machine.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>

namespace kzddl_test {

inline constexpr char control_node[] = "/dev/kz/joxconfig";
inline constexpr char raw_names[] = "/dev/kz/rjox";
inline constexpr char block_names[] = "/dev/kz/jox";

/// Waits up to 10 seconds.
inline bool soon(const std::function<bool()> &condition) {
  for (int i = 0; i < 1000 && !condition(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return condition();
}

/// The names in a directory, and the nodes that they lead to.
inline std::map<std::string, std::string> names(const char *directory) {
  std::map<std::string, std::string> found;
  std::error_code none;
  for (const auto &entry : std::filesystem::directory_iterator(directory, none))
    found[entry.path().filename()] = std::filesystem::read_symlink(entry.path(), none);
  return found;
}

class ControlService {
 public:
  static constexpr const char *no_names = "--no-names";

  explicit ControlService(const char *option = nullptr) : pid_(fork()) {
    if (pid_ == 0) {
      execl("/usr/sbin/kzcontrold", "kzcontrold", option, nullptr);
      _exit(127);
    }
    EXPECT_TRUE(soon([] { return std::filesystem::exists(control_node); }));
    if (option != no_names) {
      EXPECT_TRUE(soon([] { return names(raw_names).size() == 4; })) << "a name for each unit";
    }
  }
  ControlService(const ControlService &) = delete;
  ControlService &operator=(const ControlService &) = delete;
  ~ControlService() {
    if (pid_ > 0) stop(SIGTERM);
  }

  void send(int signal) const { kill(pid_, signal); }

  /// Its exit status, or the negated number of the signal that ended it.
  int stop(int signal) {
    send(signal);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  /// Memory that is its own, in KiB.
  long memory() const { return number("smaps_rollup", "Anonymous:"); }
  long threads() const { return number("status", "Threads:"); }
  std::size_t descriptors() const {
    const std::filesystem::directory_iterator list("/proc/" + std::to_string(pid_) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(list), end(list)));
  }

 private:
  long number(const char *file, const std::string &key) const {
    std::ifstream stream("/proc/" + std::to_string(pid_) + "/" + file);
    for (std::string word; stream >> word;) {
      long value = 0;
      if (word == key && stream >> value) return value;
    }
    return -1;
  }

  pid_t pid_;
};

}  // namespace kzddl_test
