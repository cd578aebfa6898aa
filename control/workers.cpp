#include "control/workers.h"

#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

namespace control {
namespace {

constexpr std::chrono::seconds patience{10};

}  // namespace

Workers::Workers(std::size_t limit, std::function<void()> idle)
    : limit_(limit), idle_(std::move(idle)) {}

Workers::~Workers() {
  std::unique_lock lock(mutex_);
  ending_ = true;
  changed_.notify_all();
  changed_.wait(lock, [this] { return threads_ == 0; });
}

bool Workers::start(std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  if (in_flight_ == limit_) return false;
  if (in_flight_ == threads_) {
    try {
      std::thread([this] { run(); }).detach();
    } catch (const std::system_error &) {
      return false;
    }
    ++threads_;
  }
  waiting_.push_back(std::move(work));
  ++in_flight_;
  changed_.notify_one();
  return true;
}

bool Workers::busy() const {
  const std::lock_guard lock(mutex_);
  return in_flight_ != 0;
}

void Workers::run() {
  std::unique_lock lock(mutex_);
  while (changed_.wait_for(lock, patience, [this] { return ending_ || !waiting_.empty(); }) &&
         !waiting_.empty()) {
    const std::function<void()> work = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    work();
    lock.lock();
    if (--in_flight_ == 0) idle_();
  }
  --threads_;
  // Under the lock: the destructor may go on only when this thread is done with the object.
  changed_.notify_all();
}

}  // namespace control
