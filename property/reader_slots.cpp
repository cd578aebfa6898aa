// The slots of all locks' readers, and how a writer waits for them.
#include "property/reader_slots.h"

#include <pthread.h>

#include <cstddef>
#include <ctime>

#include "base/cancellation.h"

namespace kzddl {

namespace {

constexpr std::size_t lines = 64;
constexpr std::size_t cache_line_size = 64;
constexpr std::size_t slots_in_line = cache_line_size / sizeof(ReaderSlots::Slot);

/// A cache line of slots, for the threads whose hash it is: seldom more than one.
struct alignas(cache_line_size) Line {
  ReaderSlots::Slot slots[slots_in_line];
};

Line table[lines];

Line &line_of_this_thread() {
  constexpr std::uint32_t odd_factor = 0x9E37'79B9;
  const auto thread = static_cast<std::uintptr_t>(pthread_self());
  const auto without_alignment = static_cast<std::uint32_t>(thread >> 8);
  return table[(without_alignment * odd_factor) >> 26];
}

static_assert(lines == std::size_t{1} << (32 - 26));

/// A reader is inside for less than a millisecond. Sleeping, unlike yielding, also lets one in
/// that has a lower priority. The caller's errno stays as it is, also where a signal comes.
void wait_a_little() {
  const timespec pause{0, 20'000};
  clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
}

}  // namespace

// An announcement comes before the look at admits_, and shut() ends admission before it looks
// at the slots: in the one order of all four, one side sees the other.

ReaderSlots::Slot *ReaderSlots::announce() const {
  for (Slot &slot : line_of_this_thread().slots) {
    const ReaderSlots *none = nullptr;
    if (slot.load(std::memory_order_relaxed) != nullptr) continue;
    if (!slot.compare_exchange_strong(none, this)) continue;
    if (admits_.load()) return &slot;
    leave(&slot);
    return nullptr;
  }
  return nullptr;
}

void ReaderSlots::wait_for_readers() {
  const CancellationPutOff uncancelled;  // the sleep is a cancellation point
  admits_.store(false);
  readers_.store(0, std::memory_order_relaxed);
  for (Line &line : table) {
    for (Slot &slot : line.slots) {
      while (slot.load() == this)
        wait_a_little();
    }
  }
}

}  // namespace kzddl
