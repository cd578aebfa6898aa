// The index of a property's values: a chained hash table that doubles as it fills.
#include "property/value_index.h"

#include <sys/auxv.h>

#include <atomic>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "base/memory.h"

namespace kzddl {

namespace {

constexpr std::uint32_t first_size = 64;
constexpr std::uint32_t most_without_index = 32;

/// The process's own random numbers, by which no one outside can tell which payloads share a
/// bucket.
struct HashKey {
  std::uint64_t start = 0;
  std::uint64_t factor = 0;
};

// The key as it was first read; threads that read it at once store the same. Not set before main:
// a constructor that runs earlier may already store values.
constinit std::atomic<std::uint64_t> known_start = 0;
constinit std::atomic<std::uint64_t> known_factor = 0;  // odd once known

HashKey read_key() {
  HashKey key;
  const auto random = getauxval(AT_RANDOM);
  if (random != 0) std::memcpy(&key, std::bit_cast<const void *>(random), sizeof key);
  key.factor |= 1;
  known_start.store(key.start, std::memory_order_relaxed);
  known_factor.store(key.factor, std::memory_order_release);
  return key;
}

HashKey hash_key() {
  const std::uint64_t factor = known_factor.load(std::memory_order_acquire);
  if (factor == 0) return read_key();
  return {known_start.load(std::memory_order_relaxed), factor};
}

/// Mixes two words into one.
std::uint64_t mixed(std::uint64_t a, std::uint64_t b) {
#ifdef __SIZEOF_INT128__
  // Both halves of the product, folded: each bit depends on bits below and above it.
  __extension__ using Product = unsigned __int128;
  const Product product = Product{a} * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
#else
  // Without so wide a product a weaker mix: two of the four products of half words, one of them
  // turned by half a word.
  const std::uint64_t inner = (a & 0xFFFF'FFFF) * (b >> 32);
  const std::uint64_t outer = (a >> 32) * (b & 0xFFFF'FFFF);
  return inner ^ (outer << 32 | outer >> 32);
#endif
}

/// Hash of a payload.
std::uint32_t hash_of(const char *typed) {
  const char *text = text_of(typed);
  std::size_t left = payload_length(typed);
  const HashKey key = hash_key();
  std::uint64_t hash = key.start + left;
  const auto mix = [&hash, &key](std::uint64_t word) { hash = mixed(hash ^ word, key.factor); };
  std::uint64_t word = 0;
  for (; left >= sizeof word; text += sizeof word, left -= sizeof word) {
    std::memcpy(&word, text, sizeof word);
    mix(word);
  }
  word = 0;
  std::memcpy(&word, text, left);
  mix(word);
  return static_cast<std::uint32_t>(hash ^ hash >> 32);
}

}  // namespace

vnode *ValueIndex::find(const char *typed) const {
  vnode key;
  key.value = typed;
  const std::uint32_t hash = hash_of(typed);
  vnode *value = bucket_of(hash);
  while (value != nullptr && (value->hash != hash || cmp_val(value, &key) != 0)) {
    value = value->next_in_bucket;
  }
  return value;
}

void ValueIndex::add(vnode &value, const TypedList<vnode> &values, std::int32_t count) {
  value.hash = hash_of(value.value);
  const std::uint32_t most = buckets_ != nullptr ? size_ : most_without_index;
  if (static_cast<std::uint32_t>(count) > most && grow(values)) return;
  if (buckets_ != nullptr) insert(value);
}

void ValueIndex::remove(vnode &value) {
  if (buckets_ == nullptr) return;
  vnode **link = &bucket_of(value.hash);
  while (*link != &value)
    link = &(*link)->next_in_bucket;
  *link = value.next_in_bucket;
}

void ValueIndex::destroy() {
  std::free(buckets_);
  buckets_ = nullptr;
}

void ValueIndex::insert(vnode &value) {
  vnode *&bucket = bucket_of(value.hash);
  value.next_in_bucket = bucket;
  bucket = &value;
}

bool ValueIndex::grow(const TypedList<vnode> &values) {
  const std::uint32_t size = buckets_ != nullptr ? size_ * 2 : first_size;
  vnode **buckets = zeroed_array<vnode *>(size).release();
  if (buckets == nullptr) return false;
  std::free(buckets_);
  buckets_ = buckets;
  size_ = size;
  values.for_each([this](vnode &value) { insert(value); });
  return true;
}

}  // namespace kzddl
