#include "control/naming.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <chrono>
#include <optional>
#include <stdexcept>

#include "control/message.h"
#include "tools/error.h"
#include "tools/inquiry.h"
#include "tools/vpd.h"

namespace control {
namespace {

/// Devices come in swarms: a scan waits until there was no news for so long, but not for ever.
constexpr int settle_ms = 200;
constexpr std::chrono::seconds longest_wait{2};

constexpr unsigned no_logical_unit = 3;  // peripheral qualifier

/// The state of a path among others; a device that does not tell is taken for optimized.
tool::AccessPath access_of(const HostDisk &disk, const std::vector<std::uint8_t> &page83) {
  try {
    tool::Device device(disk.block);
    return tool::access_path(device, tool::own_port(page83)).value_or(tool::AccessPath{});
  } catch (const tool::Error &error) {
    message("{}", error.what());
    return {};
  }
}

}  // namespace

Naming::Naming() : named_(eventfd(0, EFD_CLOEXEC)), stop_(eventfd(0, EFD_CLOEXEC)) {
  if (!named_ || !stop_) throw std::runtime_error("no event descriptor");
  follower_ = std::thread([this] { follow(); });
}

Naming::~Naming() {
  stopping_ = true;
  eventfd_write(stop_.get(), 1);
  follower_.join();
}

void Naming::follow() {
  using Clock = std::chrono::steady_clock;
  pollfd events[] = {{.fd = disks_.news_fd(), .events = POLLIN},
                     {.fd = stop_.get(), .events = POLLIN}};
  auto &[news, stop] = events;
  update();
  eventfd_write(named_.get(), 1);
  bool stale = false;
  Clock::time_point deadline{};  // of the next scan
  while (true) {
    poll(events, std::size(events), stale ? settle_ms : -1);
    if (stop.revents != 0) return;
    const Clock::time_point now = Clock::now();
    const bool quiet = news.revents == 0;
    // What has changed, or gone, is asked anew.
    if (!quiet) {
      if (const auto places = disks_.news()) {
        for (const std::string &place : *places)
          known_.erase(place);
      } else {
        known_.clear();
      }
      if (!stale) deadline = now + longest_wait;
      stale = true;
    }
    if (stale && (quiet || now > deadline)) {
      update();
      stale = false;
    }
  }
}

void Naming::update() {
  std::vector<UnitPath> paths;
  std::map<std::string, unsigned> path_count;
  const std::vector<HostDisk> disks = disks_.list();
  for (const HostDisk &disk : disks)
    if (const Known *const known = know(disk)) ++path_count[known->unit];
  for (const HostDisk &disk : disks) {
    const auto known = known_.find(disk.place);
    if (known == known_.end()) continue;
    const auto &[unit, has_port_groups, page83] = known->second;
    // Where there is a choice.
    const bool ask = has_port_groups && path_count[unit] > 1;
    paths.push_back({.unit = unit,
                     .block = disk.block,
                     .raw = disk.raw,
                     .access = ask ? access_of(disk, page83) : tool::AccessPath{}});
  }
  if (stopping_) return;
  const UnitNodes nodes = choose_nodes(paths);
  block_.show(nodes.block);
  raw_.show(nodes.raw);
}

const Naming::Known *Naming::know(const HostDisk &disk) {
  if (const auto found = known_.find(disk.place); found != known_.end()) return &found->second;
  if (stopping_) return nullptr;
  try {
    tool::Device device(disk.block);
    const std::vector<std::uint8_t> inquiry = tool::read_inquiry(device, std::nullopt);
    if (inquiry[0] >> 5 == no_logical_unit) return nullptr;
    const tool::Identity identity = tool::identify(device);
    Known known;
    if (tool::names_unit(identity)) {
      known.unit = file_name(identity.identifier);
      known.page83 = identity.page83;
      known.has_port_groups = tool::has_port_groups(inquiry);
    } else {
      known.unit = disk.block.substr(disk.block.rfind('/') + 1);
    }
    return &known_.emplace(disk.place, std::move(known)).first->second;
  } catch (const tool::Error &error) {
    message("{}", error.what());
    return nullptr;
  }
}

}  // namespace control
