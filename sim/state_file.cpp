#include "sim/state_file.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "sim/json_file.h"
#include "sim/platform.h"

namespace sim {

using nlohmann::json;

StateFile::Lock::Lock(const StateFile &file) {
  // A file of its own: the state's is another one after each save.
  const std::string name = file.file_.string() + ".lock";
  fd_ = platform::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd_ < 0) file.fail(std::strerror(errno));
  while (::flock(fd_, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    const int error = errno;
    platform::close(fd_);
    file.fail(std::strerror(error));
  }
}

StateFile::Lock::~Lock() { platform::close(fd_); }

json StateFile::load() const {
  try {
    return read_json(file_.string()).value_or(nullptr);
  } catch (const JsonError &error) {
    fail(error.what());
  }
}

void StateFile::save(const json &state) const {
  std::filesystem::path next = file_;
  next += ".new";
  std::ofstream stream(next);
  stream << state.dump(2) << '\n';
  stream.close();
  if (!stream) fail(std::strerror(errno));
  std::error_code error;
  std::filesystem::rename(next, file_, error);
  if (error) fail(error.message());
}

void StateFile::fail(const std::string &reason) const {
  throw StateError(file_.string() + ": " + reason);
}

}  // namespace sim
