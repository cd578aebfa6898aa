// Threads that do something over and over, for KZDDL_STRESS_SECONDS (2 unless set), and a
// watchdog: when one of them does not come back for a long time, every thread writes its stack
// to standard error, and the process ends.
#pragma once

#include <execinfo.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace kzddl_test {

inline std::chrono::seconds stress_duration() {
  const char *seconds = std::getenv("KZDDL_STRESS_SECONDS");
  return std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 2);
}

/// A thread that works, as the watchdog sees it.
struct Worker {
  std::thread thread{};
  std::atomic<unsigned long> rounds = 0;
  unsigned long seen = 0;  ///< rounds at the watchdog's last look
};

class Watchdog {
 public:
  explicit Watchdog(std::vector<std::unique_ptr<Worker>> &workers,
                    std::chrono::seconds patience = std::chrono::seconds(30))
      : patience_(patience) {
    std::signal(SIGUSR2, write_stack);
    thread_ = std::thread([this, &workers] { watch(workers); });
  }
  Watchdog(const Watchdog &) = delete;
  Watchdog &operator=(const Watchdog &) = delete;
  ~Watchdog() {
    ends_ = true;
    thread_.join();
  }

 private:
  static void write_stack(int /*signal*/) {
    std::array<void *, 64> frames;
    backtrace_symbols_fd(frames.data(), backtrace(frames.data(), frames.size()), STDERR_FILENO);
    [[maybe_unused]] const ssize_t n = ::write(STDERR_FILENO, "--\n", 3);
  }

  void watch(std::vector<std::unique_ptr<Worker>> &workers) {
    auto last_look = std::chrono::steady_clock::now();
    while (!ends_) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      if (std::chrono::steady_clock::now() - last_look < patience_) continue;
      last_look = std::chrono::steady_clock::now();
      for (const auto &worker : workers) {
        if (std::exchange(worker->seen, worker->rounds.load()) == worker->rounds) stop(workers);
      }
    }
  }

  [[noreturn]] static void stop(std::vector<std::unique_ptr<Worker>> &workers) {
    for (const auto &worker : workers) {
      if (!worker->thread.joinable()) continue;
      pthread_kill(worker->thread.native_handle(), SIGUSR2);
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    std::abort();
  }

  const std::chrono::seconds patience_;
  std::atomic<bool> ends_ = false;
  std::thread thread_;
};

/// Runs work(std::mt19937 &, number of the thread) in `count` threads.
template <class Work>
void run_numbered_threads(unsigned count, Work work) {
  const auto end = std::chrono::steady_clock::now() + stress_duration();
  std::vector<std::unique_ptr<Worker>> workers;
  for (unsigned i = 0; i < count; ++i)
    workers.push_back(std::make_unique<Worker>());
  for (unsigned i = 0; i < count; ++i) {
    workers[i]->thread = std::thread([&work, &rounds = workers[i]->rounds, end, i] {
      std::mt19937 random(i);
      for (; std::chrono::steady_clock::now() < end; ++rounds)
        work(random, i);
    });
  }
  const Watchdog watchdog(workers);
  for (const auto &worker : workers)
    worker->thread.join();
}

template <class Work>
void run_threads(unsigned count, Work work) {
  run_numbered_threads(count, [&work](std::mt19937 &random, unsigned) { work(random); });
}

}  // namespace kzddl_test
