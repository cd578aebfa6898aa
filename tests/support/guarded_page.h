// Bytes that end where an inaccessible page begins: one read too many is a crash.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace kzddl_test {

class GuardedPage {
 public:
  explicit GuardedPage(const std::vector<std::uint8_t> &bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t pages = bytes.size() / page + 1;
    size_ = (pages + 1) * page;
    map_ = static_cast<std::uint8_t *>(
        mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(map_ + pages * page, page, PROT_NONE);
    data_ = map_ + pages * page - bytes.size();
    if (!bytes.empty()) std::memcpy(data_, bytes.data(), bytes.size());
  }
  GuardedPage(const GuardedPage &) = delete;
  GuardedPage &operator=(const GuardedPage &) = delete;
  ~GuardedPage() { munmap(map_, size_); }

  std::uint8_t *data() const { return data_; }

 private:
  std::size_t size_ = 0;
  std::uint8_t *map_ = nullptr;
  std::uint8_t *data_ = nullptr;
};

}  // namespace kzddl_test
