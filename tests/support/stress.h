// Threads that do something over and over, for KZDDL_STRESS_SECONDS (2 unless set). When one of
// them does not come back for a long time, every thread writes its stack to standard error, and
// the process ends.
#pragma once

#include <execinfo.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "support/setting.h"

namespace kzddl_test {

inline void write_stack(int /*signal*/) {
  std::array<void *, 64> frames;
  backtrace_symbols_fd(frames.data(), backtrace(frames.data(), frames.size()), STDERR_FILENO);
  [[maybe_unused]] const ssize_t n = ::write(STDERR_FILENO, "--\n", 3);
}

[[noreturn]] inline void write_stacks_and_end(std::vector<std::thread> &threads) {
  std::signal(SIGUSR2, write_stack);
  for (std::thread &thread : threads) {
    pthread_kill(thread.native_handle(), SIGUSR2);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  std::abort();
}

/// Runs work(std::mt19937 &, number of the thread) in `count` threads.
template <class Work>
void run_threads(unsigned count, Work work,
                 std::chrono::seconds patience = std::chrono::seconds(60)) {
  using std::chrono::steady_clock;
  const auto end = steady_clock::now() + std::chrono::seconds(setting("KZDDL_STRESS_SECONDS", 2));
  std::atomic<unsigned> running = count;
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < count; ++i) {
    threads.emplace_back([&work, &running, end, i] {
      std::mt19937 random(i);
      while (steady_clock::now() < end)
        work(random, i);
      --running;
    });
  }
  while (running != 0) {
    if (steady_clock::now() > end + patience) write_stacks_and_end(threads);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  for (std::thread &thread : threads)
    thread.join();
}

}  // namespace kzddl_test
