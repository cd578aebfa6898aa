#include "control/link_directory.h"

#include <system_error>
#include <utility>
#include <vector>

#include "control/message.h"

namespace control {
namespace {

namespace fs = std::filesystem;

}  // namespace

LinkDirectory::LinkDirectory(fs::path directory) : directory_(std::move(directory)) {
  std::error_code error;
  fs::create_directories(directory_, error);
  if (error) message("mkdir {}: {}", directory_.native(), error.message());
}

LinkDirectory::~LinkDirectory() {
  show({});
  std::error_code not_empty;
  fs::remove(directory_, not_empty);
}

void LinkDirectory::show(const std::map<std::string, std::string> &wanted) {
  std::error_code error;
  std::vector<fs::path> stale;
  for (const fs::directory_entry &entry : fs::directory_iterator(directory_, error))
    if (entry.is_symlink(error) && !wanted.contains(entry.path().filename()))
      stale.push_back(entry.path());
  for (const fs::path &link : stale)
    fs::remove(link, error);

  // Made beside the directory, so that nobody who reads it meets a half-made one.
  const fs::path made = directory_.native() + ".new";
  for (const auto &[name, target] : wanted) {
    const fs::path link = directory_ / name;
    if (fs::read_symlink(link, error) == target) continue;
    const fs::file_type there = fs::symlink_status(link, error).type();
    if (there != fs::file_type::not_found && there != fs::file_type::symlink) {
      message("{}: there already, and no link", link.native());
      continue;
    }
    fs::remove(made, error);
    fs::create_symlink(target, made, error);
    if (!error) fs::rename(made, link, error);
    if (error) message("link {}: {}", link.native(), error.message());
  }
}

}  // namespace control
