// The host's SCSI disks, and news of those that come and go, by libudev.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct udev;
struct udev_monitor;

namespace control {

struct HostDisk {
  std::string place;  ///< its directory in sysfs
  std::string block;  ///< "/dev/sda"
  std::string raw;    ///< "/dev/sg0"; empty where the kernel has no sg node for it
};

class HostDisks {
 public:
  /// Throws std::runtime_error when the kernel's news cannot be had.
  HostDisks();

  /// Those that are there, in the kernel's order.
  std::vector<HostDisk> list() const;

  /// Becomes readable when there is news.
  int news_fd() const;

  /// Takes the news; the places of the devices that they are about. Nothing when some were lost,
  /// as more came than were taken: any device may then have changed.
  std::optional<std::set<std::string>> news();

 private:
  struct Release {
    void operator()(udev *context) const;
    void operator()(udev_monitor *monitor) const;
  };

  std::unique_ptr<udev, Release> context_;
  std::unique_ptr<udev_monitor, Release> monitor_;
};

}  // namespace control
