#include "tools/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/error.h"

namespace tool {

File::File(const std::string &name, bool writes) : name_(name) {
  if (name == "-") {
    name_ = writes ? "standard output" : "standard input";
    fd_ = writes ? STDOUT_FILENO : STDIN_FILENO;
    return;
  }
  const int flags = writes ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY;
  fd_ = ::open(name.c_str(), flags | O_CLOEXEC, 0666);
  if (fd_ < 0) throw Error::usage(fmt::format("{}: {}", name, std::strerror(errno)));
  owned_ = true;
  struct stat status;
  if (writes && ::fstat(fd_, &status) == 0 && S_ISBLK(status.st_mode)) {
    ::close(fd_);
    throw Error::usage(fmt::format("{}: a block device; kzddl write overwrites those", name));
  }
}

File::~File() {
  if (owned_) ::close(fd_);
}

void File::fail(std::string_view action) const {
  throw Error::failure(fmt::format("{} {}: {}", action, name_, std::strerror(errno)));
}

std::optional<std::uint64_t> File::size() const {
  struct stat status;
  if (::fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const off_t position = ::lseek(fd_, 0, SEEK_CUR);
  return static_cast<std::uint64_t>(std::max<off_t>(0, status.st_size - position));
}

std::size_t File::read(std::span<std::uint8_t> data) {
  std::size_t done = 0;
  while (done < data.size()) {
    const ssize_t n = ::read(fd_, data.data() + done, data.size() - done);
    if (n == 0) break;
    if (n > 0) {
      done += static_cast<std::size_t>(n);
    } else if (errno != EINTR) {
      fail("read");
    }
  }
  return done;
}

void File::write(ByteSpan data) {
  while (!data.empty()) {
    const ssize_t n = ::write(fd_, data.data(), data.size());
    if (n >= 0) {
      data = data.subspan(static_cast<std::size_t>(n));
      written_ += static_cast<std::uint64_t>(n);
    } else if (errno != EINTR) {
      fail("write");
    }
  }
}

void File::close() {
  if (!owned_) return;
  owned_ = false;
  if (::close(fd_) != 0) fail("write");
}

}  // namespace tool
