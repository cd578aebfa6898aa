#include "control/host_disks.h"

#include <libudev.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <tuple>

namespace control {
namespace {

struct ReleaseDevice {
  void operator()(udev_device *device) const { udev_device_unref(device); }
  void operator()(udev_enumerate *list) const { udev_enumerate_unref(list); }
};
using DeviceOwner = std::unique_ptr<udev_device, ReleaseDevice>;

std::string text(const char *value) { return value != nullptr ? value : ""; }

/// The node of the generic driver for a SCSI device.
std::string raw_node(udev_device *scsi_device) {
  const std::filesystem::path directory =
      std::filesystem::path(udev_device_get_syspath(scsi_device)) / "scsi_generic";
  std::error_code none;
  for (const auto &entry : std::filesystem::directory_iterator(directory, none))
    return "/dev/" + entry.path().filename().native();
  return {};
}

}  // namespace

void HostDisks::Release::operator()(udev *context) const { udev_unref(context); }
void HostDisks::Release::operator()(udev_monitor *monitor) const { udev_monitor_unref(monitor); }

HostDisks::HostDisks() : context_(udev_new()) {
  // The kernel's own news: they come whether or not a device manager runs, and the nodes of its
  // file system are there by then.
  if (context_ != nullptr) monitor_.reset(udev_monitor_new_from_netlink(context_.get(), "kernel"));
  if (monitor_ == nullptr ||
      udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), "block", "disk") < 0 ||
      udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), "scsi_generic", nullptr) <
          0 ||
      udev_monitor_enable_receiving(monitor_.get()) < 0) {
    throw std::runtime_error("the kernel's news of devices cannot be had");
  }
}

std::vector<HostDisk> HostDisks::list() const {
  const std::unique_ptr<udev_enumerate, ReleaseDevice> enumerate(
      udev_enumerate_new(context_.get()));
  udev_enumerate_add_match_subsystem(enumerate.get(), "block");
  udev_enumerate_scan_devices(enumerate.get());
  std::vector<HostDisk> disks;
  udev_list_entry *entry = nullptr;
  udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate.get())) {
    const DeviceOwner device(
        udev_device_new_from_syspath(context_.get(), udev_list_entry_get_name(entry)));
    if (device == nullptr || text(udev_device_get_devtype(device.get())) != "disk") continue;
    udev_device *const scsi =
        udev_device_get_parent_with_subsystem_devtype(device.get(), "scsi", "scsi_device");
    const std::string node = text(udev_device_get_devnode(device.get()));
    if (scsi == nullptr || node.empty()) continue;
    disks.push_back({udev_device_get_syspath(device.get()), node, raw_node(scsi)});
  }
  return disks;
}

int HostDisks::news_fd() const { return udev_monitor_get_fd(monitor_.get()); }

std::optional<std::set<std::string>> HostDisks::news() {
  std::set<std::string> places;
  bool lost = false;
  while (true) {
    errno = 0;
    const DeviceOwner device(udev_monitor_receive_device(monitor_.get()));
    lost = lost || errno == ENOBUFS;
    if (device != nullptr) {
      places.insert(udev_device_get_syspath(device.get()));
    } else if (errno != ENOBUFS) {
      break;
    }
  }
  if (lost) return std::nullopt;
  return places;
}

}  // namespace control
