#include "sim/storage.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "sim/platform.h"
#include "sim/state_file.h"

namespace sim {
namespace {

constexpr std::size_t chunk_size = 65536;

/// Moves all of `size` bytes by calls of pread or pwrite, each of which moves some; returns how
/// many there were before the file's end or an error, which `ok` tells apart.
template <class Move>
std::size_t move_all(std::size_t size, bool &ok, Move move) {
  std::size_t done = 0;
  ok = true;
  while (done < size) {
    const ssize_t n = move(done);
    if (n == 0) break;
    if (n > 0) {
      done += static_cast<std::size_t>(n);
    } else if (errno != EINTR) {
      ok = false;
      break;
    }
  }
  return done;
}

}  // namespace

Storage::Storage(std::uint64_t blocks, std::uint32_t block_size)
    : blocks_(blocks), block_size_(block_size) {}

Storage::~Storage() {
  if (fd_ >= 0) platform::close(fd_);
}

void Storage::keep_in(const std::filesystem::path &file) {
  fd_ = platform::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_LARGEFILE, 0666);
  if (fd_ < 0) throw StateError(file.string() + ": " + std::strerror(errno));
}

bool Storage::has_offsets(std::uint64_t lba, std::size_t size) const {
  constexpr std::uint64_t end = std::numeric_limits<off_t>::max();
  return lba <= (end - size) / block_size_;
}

bool Storage::contains(std::uint64_t lba, std::uint64_t count) const {
  return lba < blocks_ && count <= blocks_ - lba;
}

template <class Visit>
void Storage::for_each_chunk(std::uint64_t lba, std::size_t size, Visit visit) const {
  const std::uint64_t blocks_per_chunk = chunk_size / block_size_;
  std::uint64_t chunk = lba / blocks_per_chunk;
  std::size_t offset = static_cast<std::size_t>(lba % blocks_per_chunk) * block_size_;
  for (std::size_t position = 0; position < size; ++chunk, offset = 0) {
    const std::size_t length = std::min(size - position, chunk_size - offset);
    visit(chunk, offset, position, length);
    position += length;
  }
}

Bytes Storage::read(std::uint64_t lba, std::size_t count) const {
  Bytes data(count * block_size_);
  if (fd_ >= 0) {
    if (!has_offsets(lba, data.size())) refuse(unrecovered_read_error);
    const auto start = static_cast<off_t>(lba * block_size_);
    bool ok = false;
    // What lies behind the file's end was never written.
    move_all(data.size(), ok, [&](std::size_t done) {
      return pread(fd_, &data[done], data.size() - done, start + static_cast<off_t>(done));
    });
    if (!ok) refuse(unrecovered_read_error);
    return data;
  }
  for_each_chunk(lba, data.size(), [&](auto chunk, auto offset, auto position, auto length) {
    const auto found = chunks_.find(chunk);
    if (found != chunks_.end()) {
      std::copy_n(&found->second[offset], length, &data[position]);
    }
  });
  return data;
}

void Storage::write(std::uint64_t lba, std::span<const std::uint8_t> data) {
  if (fd_ >= 0) {
    if (!has_offsets(lba, data.size())) refuse(write_error);
    const auto start = static_cast<off_t>(lba * block_size_);
    bool ok = false;
    const std::size_t written = move_all(data.size(), ok, [&](std::size_t done) {
      return pwrite(fd_, &data[done], data.size() - done, start + static_cast<off_t>(done));
    });
    if (!ok || written != data.size()) refuse(write_error);
    return;
  }
  for_each_chunk(lba, data.size(), [&](auto chunk, auto offset, auto position, auto length) {
    Bytes &bytes = chunks_[chunk];
    bytes.resize(chunk_size);
    std::copy_n(&data[position], length, &bytes[offset]);
  });
}

}  // namespace sim
