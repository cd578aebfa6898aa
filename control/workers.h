// A thread for each piece of work in flight, up to a limit. Threads that find nothing to do for a
// while end.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace control {

class Workers {
 public:
  /// `idle` is called, on one of the threads, each time that nothing is in flight any more.
  Workers(std::size_t limit, std::function<void()> idle);
  Workers(const Workers &) = delete;
  Workers &operator=(const Workers &) = delete;
  /// Waits for the work in flight, and for the threads.
  ~Workers();

  /// Starts a piece of work, which must not throw; false when as much as may be is in flight, or
  /// when there is no thread to be had.
  bool start(std::function<void()> work);

  bool busy() const;

 private:
  void run();

  const std::size_t limit_;
  const std::function<void()> idle_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> waiting_;
  std::size_t in_flight_ = 0;  ///< waiting, or being done
  std::size_t threads_ = 0;
  bool ending_ = false;
};

}  // namespace control
