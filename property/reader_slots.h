// Readers of a lock that do not meet.
//
// Every reader of a reader-writer lock writes to it, so that threads which only look things up
// pass its cache line to and fro. While nobody writes, readers of a lock are therefore admitted
// without it: each announces itself in a slot near no other thread's, and a writer, with the
// lock in its hands, turns this off and waits for the slots to empty. It is on again after some
// more reads.
#pragma once

#include <atomic>
#include <cstdint>

namespace kzddl {

/// Stands beside a reader-writer lock. Zero-filled memory is one that admits nobody yet.
class ReaderSlots {
 public:
  using Slot = std::atomic<const ReaderSlots *>;

  /// Admits the calling thread as a reader until leave(); null when it must take the lock.
  Slot *enter() const { return admits_.load(std::memory_order_relaxed) ? announce() : nullptr; }

  static void leave(Slot *slot) { slot->store(nullptr, std::memory_order_release); }

  /// For a thread that has just taken the lock for reading: counts towards admission.
  void count_reader() {
    if (readers_.fetch_add(1, std::memory_order_relaxed) + 1 < readers_before_admission) return;
    readers_.store(0, std::memory_order_relaxed);
    admits_.store(true);
  }

  /// For a thread that has just taken the lock for writing: afterwards nobody is admitted, and
  /// all who were have left.
  void shut() {
    if (admits_.load(std::memory_order_relaxed)) wait_for_readers();
  }

 private:
  /// So many that a look at all slots, now and then, weighs nothing.
  static constexpr std::uint32_t readers_before_admission = 256;

  Slot *announce() const;
  void wait_for_readers();

  std::atomic<bool> admits_;
  std::atomic<std::uint32_t> readers_;
};

}  // namespace kzddl
