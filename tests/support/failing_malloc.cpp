// The test program's own malloc family: it stands before every library's, and hands all
// requests on, to the C library or to a sanitizer.
#include "support/failing_malloc.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "kzddl/kzscsi.h"

namespace {

std::atomic<bool> watching = false;
std::atomic<long> seen = 0;
std::atomic<long> fail_at = 0;
/// What the library has allocated since watching began and not freed yet; null: a free entry.
std::atomic<void *> blocks[256];
std::atomic<bool> any_blocks = false;
std::uintptr_t library_start = 0;
std::uintptr_t library_end = 0;

int find_library(dl_phdr_info *info, std::size_t /*size*/, void *address) {
  const auto wanted = reinterpret_cast<std::uintptr_t>(address);
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr) &segment = info->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
    const std::uintptr_t start = info->dlpi_addr + segment.p_vaddr;
    const std::uintptr_t end = start + segment.p_memsz;
    if (wanted < start || wanted >= end) continue;
    library_start = start;
    library_end = end;
    return 1;
  }
  return 0;
}

void watch(long n) {
  // Not the address of do_scsi as this program sees it: that may be its own jump table.
  if (library_end == 0) dl_iterate_phdr(find_library, dlsym(RTLD_DEFAULT, "do_scsi"));
  for (std::atomic<void *> &block : blocks)
    block = nullptr;
  any_blocks = false;
  seen = 0;
  fail_at = n;
  watching = true;
}

bool is_library(const void *caller) {
  const auto from = reinterpret_cast<std::uintptr_t>(caller);
  return from >= library_start && from < library_end;
}

bool replace_block(void *from, void *to) {
  for (std::atomic<void *> &block : blocks) {
    void *expected = from;
    if (block.compare_exchange_strong(expected, to)) return true;
  }
  return false;
}

/// Answers a request with `allocate()`, or with null when its turn to fail has come.
template <class Allocate>
void *answer(const void *caller, Allocate allocate) {
  if (!watching || !is_library(caller)) return allocate();
  if (++seen == fail_at) return nullptr;
  void *block = allocate();
  any_blocks = true;
  if (block != nullptr) replace_block(nullptr, block);
  return block;
}

/// Finds the next definition once. No static local: its guard may itself allocate.
template <class Function>
Function *next(Function *&known, const char *name) {
  if (known == nullptr) known = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
  return known;
}

void *(*real_malloc)(std::size_t);
void *(*real_calloc)(std::size_t, std::size_t);
void *(*real_realloc)(void *, std::size_t);
void (*real_free)(void *);

}  // namespace

extern "C" {

void *malloc(std::size_t size) noexcept {
  return answer(__builtin_return_address(0), [size] { return next(real_malloc, "malloc")(size); });
}

void *calloc(std::size_t count, std::size_t size) noexcept {
  return answer(__builtin_return_address(0),
                [count, size] { return next(real_calloc, "calloc")(count, size); });
}

void *realloc(void *block, std::size_t size) noexcept {
  return answer(__builtin_return_address(0),
                [block, size] { return next(real_realloc, "realloc")(block, size); });
}

void free(void *block) noexcept {
  // The search for the next definition may itself free a message; that one stays.
  static std::atomic<bool> searching = false;
  if (real_free == nullptr && searching.exchange(true)) return;
  if (any_blocks && block != nullptr) replace_block(block, nullptr);
  next(real_free, "free")(block);
}

}  // extern "C"

namespace kzddl_test {

FailMalloc::FailMalloc(long n) { watch(n); }
FailMalloc::~FailMalloc() { watching = false; }
bool FailMalloc::happened() const { return fail_at != 0 && seen >= fail_at; }

CountMalloc::CountMalloc() { watch(0); }
CountMalloc::~CountMalloc() { watching = false; }
long CountMalloc::count() const { return seen; }

long live_blocks() {
  return std::count_if(std::begin(blocks), std::end(blocks),
                       [](const std::atomic<void *> &block) { return block != nullptr; });
}

}  // namespace kzddl_test
