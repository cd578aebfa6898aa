#include "sim/host.h"

#include <fcntl.h>
#include <scsi/scsi_ioctl.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include "sim/command_rules.h"
#include "sim/platform.h"
#include "sim/sysfs.h"

namespace sim {
namespace {

// The kernel's limits on a legacy request.
constexpr std::uint32_t legacy_max_data = 4096;
constexpr std::size_t legacy_sense_size = 16;

/// The record of an indirect request, as the library lays it out in this word size.
struct IndirectRecord {
  std::uint32_t dev_lo;
  std::uint32_t dev_hi;
  std::uint32_t command;
  std::uint32_t oflags;
  void *argument;
};

/// The kernel reports sense data through the driver status.
constexpr unsigned short driver_sense = 8;

/// A number of the kernel's miscellaneous devices.
const dev_t control_node_number = makedev(10, 144);

int fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

Host &Host::instance() {
  // Never destroyed: the program's own clean-up still opens and closes through it.
  static Host &host = *new Host;
  return host;
}

Host::Host() : tree_([this](const std::string &owner) { return is_removed_now(owner); }) {}

void Host::add(Node added) {
  if (added.device != nullptr) added.device->connect({added.initiator, added.port.relative_id});
  const auto node = std::make_shared<const Node>(std::move(added));
  const std::string &name = node->name;
  const std::scoped_lock lock(mutex_);
  faults_.erase(name);
  std::shared_ptr<const Node> &place = nodes_[name];
  if (place != nullptr) {
    const auto old = names_by_number_.find(place->number);
    if (old != names_by_number_.end() && old->second == name) names_by_number_.erase(old);
    remove_from_sysfs(tree_, *place);
  }
  place = node;
  names_by_number_[node->number] = name;
  tree_.add_node(name);
  add_to_sysfs(tree_, node, [this, name] { return state_of(name); });
}

void Host::add_control_node() {
  const std::scoped_lock lock(mutex_);
  for (const char *directory : {"/dev/kz", block_directory, raw_directory})
    tree_.add_directory(directory);
  tree_.add_node(control_node);
}

void Host::set_file(const std::string &name, std::optional<std::string> text) {
  set_file(name, [text = std::move(text)] { return text; });
}

void Host::set_file(const std::string &name, FileTree::Read read) {
  const std::scoped_lock lock(mutex_);
  tree_.add_file(name, std::move(read));
}

void Host::add_link(const std::string &name, const std::string &node) {
  const std::scoped_lock lock(mutex_);
  for (std::size_t end = name.find('/', 1); (end = name.find('/', end + 1)) != std::string::npos;)
    tree_.add_directory(name.substr(0, end));
  tree_.add_link(name, node);
}

void Host::set_machine(std::optional<std::string> machine) {
  const std::scoped_lock lock(mutex_);
  knows_machine_ = true;
  machine_ = std::move(machine);
}

void Host::drop_privileges() {
  const std::scoped_lock lock(mutex_);
  privileged_ = false;
}

void Host::inject(const std::string &node, Fault fault) {
  const std::scoped_lock lock(mutex_);
  faults_[node].add(std::move(fault));
}

void Host::fail_open(const std::string &node, int error) {
  const std::scoped_lock lock(mutex_);
  open_errors_[node] = error;
}

void Host::remove(const std::string &node) { inject(node, {.times = -1, .gone = Gone::removed}); }

bool Host::is_removed_now(const std::string &node) const {
  const auto faults = faults_.find(node);
  return faults != faults_.end() && faults->second.gone() == Gone::removed;
}

bool Host::is_removed(const std::string &node) const {
  const std::scoped_lock lock(mutex_);
  return is_removed_now(node);
}

std::string Host::state_of(const std::string &node) const {
  const std::scoped_lock lock(mutex_);
  const auto faults = faults_.find(node);
  const bool is_offline = faults != faults_.end() && faults->second.gone() == Gone::offline;
  const std::string &state = nodes_.at(node)->state;
  return is_offline && state == "running" ? "offline" : state;
}

std::vector<Node> Host::nodes() const {
  const std::scoped_lock lock(mutex_);
  std::vector<Node> list;
  for (const auto &[name, node] : nodes_)
    list.push_back(*node);
  return list;
}

void Host::stop_recording() {
  const std::scoped_lock lock(mutex_);
  records_ = false;
}

std::vector<Request> Host::take_requests() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(requests_, {});
}

int Host::open_descriptors() const {
  const std::scoped_lock lock(mutex_);
  return static_cast<int>(descriptors_.size());
}

std::optional<Host::Place> Host::locate(const std::string &name, bool follow) const {
  Place place;
  FileTree::Read read;
  {
    const std::scoped_lock lock(mutex_);
    const auto found = tree_.find(name, follow);
    if (!found) return std::nullopt;
    if (found->entry == nullptr) return place;
    place = {found->name, found->entry->kind, found->entry->target};
    read = found->entry->read;
  }
  if (place.kind != FileTree::Kind::file) return place;
  std::optional<std::string> text = read();  // asks a device, or the host
  if (!text) return Place{};
  place.text = std::move(*text);
  return place;
}

std::optional<int> Host::open(const std::string &name, int flags) {
  const std::optional<Place> place = locate(name);
  {
    const std::scoped_lock lock(mutex_);
    const auto error = open_errors_.find(place && place->kind ? place->name : name);
    if (error != open_errors_.end() && error->second != 0) return fail(error->second);
  }
  if (!place) return std::nullopt;
  if (!place->kind) return fail(ENOENT);
  if (place->kind == FileTree::Kind::node) return open_node(place->name, flags);
  if ((flags & O_ACCMODE) != O_RDONLY) return fail(EACCES);
  if (place->kind == FileTree::Kind::file) return platform::file_with(place->text);
  return open_descriptor(place->name, flags);
}

std::optional<int> Host::open_file(const std::string &name) const {
  const std::optional<Place> place = locate(name);
  if (!place || place->kind == FileTree::Kind::node) return std::nullopt;
  if (!place->kind) return fail(ENOENT);
  if (place->kind != FileTree::Kind::file) return fail(EISDIR);
  return platform::file_with(place->text);
}

int Host::open_node(const std::string &name, int flags) {
  {
    const std::scoped_lock lock(mutex_);
    if (name == control_node) {
      if (!privileged_) return fail(EACCES);
    } else if (refuse_open(*nodes_.at(name), static_cast<unsigned>(flags))) {
      return fail(ENXIO);
    }
  }
  return open_descriptor(name, flags);
}

int Host::open_descriptor(const std::string &name, int flags) {
  // A real descriptor keeps the number from being given out twice.
  const int fd = platform::open("/dev/null", O_RDWR | O_CLOEXEC);
  const std::scoped_lock lock(mutex_);
  if (fd >= 0) descriptors_[fd] = {name, static_cast<unsigned>(flags)};
  return fd;
}

void Host::closed(int fd) {
  const std::scoped_lock lock(mutex_);
  descriptors_.erase(fd);
}

std::optional<int> Host::ioctl(int fd, unsigned long request, void *argument) {
  Descriptor descriptor;
  {
    const std::scoped_lock lock(mutex_);
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end()) return std::nullopt;
    descriptor = found->second;
  }
  if (descriptor.name == control_node) return ioctl_control(request, argument);
  return perform(descriptor.name, request, argument, {.oflags = descriptor.flags});
}

int Host::ioctl_control(unsigned long request, void *argument) {
  if (request != SG_IO && request != indirect_request) return fail(ENOTTY);

  // SG_IO itself carries the record in dxferp and the data pointer in the record.
  auto *header = request == SG_IO ? static_cast<sg_io_hdr *>(argument) : nullptr;
  const auto *record = static_cast<IndirectRecord *>(header != nullptr ? header->dxferp : argument);

  const dev_t number = static_cast<dev_t>(record->dev_hi) << 32 | record->dev_lo;
  std::string name;
  {
    const std::scoped_lock lock(mutex_);
    const auto found = names_by_number_.find(number);
    if (found == names_by_number_.end()) return fail(ENODEV);
    name = found->second;
    if (refuse_open(*nodes_.at(name), record->oflags)) return fail(ENXIO);
  }
  Request origin{
      .through_control_node = true, .control_request = request, .oflags = record->oflags};
  if (header == nullptr) return perform(name, record->command, record->argument, std::move(origin));

  void *const outer = std::exchange(header->dxferp, record->argument);
  const int result = perform(name, record->command, header, std::move(origin));
  header->dxferp = outer;
  return result;
}

int Host::perform(const std::string &name, unsigned long command, void *argument, Request request) {
  std::shared_ptr<const Node> node;
  {
    const std::scoped_lock lock(mutex_);
    const auto found = nodes_.find(name);
    if (found == nodes_.end()) return fail(ENOTTY);
    node = found->second;
    // The legacy request through an sg node does not look: the host adapter then fails it.
    const bool is_sg = node->kind == NodeKind::character;
    const auto gone = refuse_as_gone(name, is_sg && command == SCSI_IOCTL_SEND_COMMAND);
    if (gone) return fail(*gone == Gone::offline && is_sg ? ENXIO : ENODEV);
  }
  request.node = name;
  switch (command) {
    case SG_IO:
      return sg_io(*node, *static_cast<sg_io_hdr *>(argument), std::move(request));
    case SCSI_IOCTL_SEND_COMMAND:
      return legacy(*node, argument, std::move(request));
    default:
      return fail(ENOTTY);
  }
}

int Host::sg_io(const Node &node, sg_io_hdr &header, Request request) {
  const int direction = header.dxfer_direction;
  const bool to_device = direction == SG_DXFER_TO_DEV || direction == SG_DXFER_TO_FROM_DEV;
  // An sg node takes a request that names no direction as a read.
  const bool from_device = direction == SG_DXFER_FROM_DEV || direction == SG_DXFER_TO_FROM_DEV ||
                           (direction == 0 && node.kind == NodeKind::character);
  if (header.interface_id != 'S' || header.cmd_len == 0 || header.cmd_len > 32) return fail(EINVAL);
  if (header.dxfer_len != 0 && !to_device && !from_device && node.kind == NodeKind::block) {
    return fail(EINVAL);
  }

  request.form = Request::Form::sg_io;
  request.header = header;
  request.cdb.assign(header.cmdp, header.cmdp + header.cmd_len);
  auto *data = static_cast<std::uint8_t *>(header.dxferp);
  if (to_device && header.dxfer_len != 0) request.data_out.assign(data, data + header.dxfer_len);

  const std::optional<Reply> reply = answer(node, request);
  if (!reply) return -1;
  const std::size_t moved =
      from_device ? std::min<std::size_t>(reply->data.size(), header.dxfer_len) : 0;
  std::copy_n(reply->data.begin(), moved, data);
  const std::size_t sense = std::min<std::size_t>(reply->sense.size(), header.mx_sb_len);
  std::copy_n(reply->sense.begin(), sense, header.sbp);

  header.status = reply->status;
  header.masked_status = (reply->status >> 1) & 0x1F;
  header.host_status = reply->host_status;
  // sg nodes do not report sense data that the caller gave no room for.
  const bool reports_sense = node.kind == NodeKind::block || header.mx_sb_len != 0;
  const unsigned short own_status = !reply->sense.empty() && reports_sense ? driver_sense : 0;
  header.driver_status = reply->driver_status.value_or(own_status);
  header.sb_len_wr = static_cast<unsigned char>(sense);
  header.resid =
      reply->residual.value_or(from_device ? static_cast<int>(header.dxfer_len - moved) : 0);
  const bool is_clean = reply->status == 0 && reply->host_status == 0 && header.driver_status == 0;
  header.info = is_clean ? SG_INFO_OK : SG_INFO_CHECK;
  return 0;
}

int Host::legacy(const Node &node, void *argument, Request request) {
  auto *buffer = static_cast<std::uint8_t *>(argument);
  std::memcpy(&request.in_length, buffer, sizeof request.in_length);
  std::memcpy(&request.out_length, buffer + 4, sizeof request.out_length);
  if (request.in_length > legacy_max_data || request.out_length > legacy_max_data) {
    return fail(EINVAL);
  }
  std::uint8_t *data = buffer + 8;
  request.form = Request::Form::legacy;
  request.cdb.assign(data, data + cdb_length(data[0]));
  const std::uint8_t *sent = data + request.cdb.size();
  request.data_out.assign(sent, sent + request.in_length);

  const std::optional<Reply> reply = answer(node, request);
  if (!reply) return -1;
  if (reply->status != status::good) {
    const std::size_t sense = std::min(reply->sense.size(), legacy_sense_size);
    std::copy_n(reply->sense.begin(), sense, data);
    return reply->status;
  }
  // One kernel buffer serves both ways: what the device leaves unset is what was sent. A host
  // error is not looked at: the caller sees success and zeros.
  Bytes returned(std::max(request.in_length, request.out_length));
  std::copy(request.data_out.begin(), request.data_out.end(), returned.begin());
  if (reply->host_status == 0) {
    std::copy_n(reply->data.begin(), std::min(reply->data.size(), returned.size()),
                returned.begin());
  }
  std::copy_n(returned.begin(), request.out_length, data);
  return 0;
}

bool Host::may_send(const Request &request) const {
  const std::scoped_lock lock(mutex_);
  if (privileged_) return true;
  switch (rule_of(request.cdb[0]).sender) {
    case Sender::anyone:
      return true;
    case Sender::writer:
      return (request.oflags & O_ACCMODE) != O_RDONLY;
    default:
      return false;
  }
}

std::optional<Reply> Host::answer(const Node &node, const Request &request) {
  if (!may_send(request)) {
    errno = EPERM;
    return std::nullopt;
  }
  // With no lock held: what other paths are asked goes on side by side.
  const auto [delay, fault] = meet_faults(request);
  if (delay.count() != 0) std::this_thread::sleep_for(delay);
  if (fault && fault->before) fault->before();
  if (fault && fault->error) {
    errno = *fault->error;
    return std::nullopt;
  }
  if (fault && fault->reply) return fault->reply;
  Bytes cdb = request.cdb;
  cdb.resize(std::max(cdb.size(), cdb_room));
  Reply reply = node.device->execute({cdb, request.data_out, node.initiator}, node.port);
  if (fault && fault->change) fault->change(reply);
  if (reply.error != 0) {
    errno = reply.error;
    return std::nullopt;
  }
  return reply;
}

std::optional<Gone> Host::refuse_as_gone(const std::string &node, bool passes_when_offline) {
  const auto faults = faults_.find(node);
  if (faults == faults_.end()) return std::nullopt;
  const std::optional<Gone> gone = faults->second.gone();
  if (!gone || (*gone == Gone::offline && passes_when_offline)) return std::nullopt;
  faults->second.count_gone();
  return gone;
}

bool Host::refuse_open(const Node &node, unsigned flags) {
  const bool passes = node.kind == NodeKind::character && (flags & O_NONBLOCK) != 0;
  return refuse_as_gone(node.name, passes).has_value();
}

FaultList::Effect Host::meet_faults(const Request &request) {
  const std::scoped_lock lock(mutex_);
  if (records_) requests_.push_back(request);
  const auto faults = faults_.find(request.node);
  return faults != faults_.end() ? faults->second.meet(request) : FaultList::Effect{};
}

Status Host::status_of(const Place &place) const {
  Status status{.inode = std::hash<std::string>()(place.name) | 1};
  switch (*place.kind) {
    case FileTree::Kind::directory:
      status.mode = S_IFDIR | 0755;
      break;
    case FileTree::Kind::file:
      status.mode = S_IFREG | 0444;
      status.size = place.text.size();
      break;
    case FileTree::Kind::link:
      status.mode = S_IFLNK | 0777;
      status.size = place.text.size();
      break;
    case FileTree::Kind::node: {
      const std::scoped_lock lock(mutex_);
      const auto node = nodes_.find(place.name);  // or the control node
      const bool is_block = node != nodes_.end() && node->second->kind == NodeKind::block;
      status.mode = (is_block ? S_IFBLK : S_IFCHR) | 0600;
      status.number = node != nodes_.end() ? node->second->number : control_node_number;
    }
  }
  return status;
}

std::optional<int> Host::stat(const std::string &name, bool follow, Status &status) const {
  const std::optional<Place> place = locate(name, follow);
  if (!place) return std::nullopt;
  if (!place->kind) return fail(ENOENT);
  status = status_of(*place);
  return 0;
}

std::optional<int> Host::stat(int fd, Status &status) const {
  const std::optional<std::string> name = name_of(fd);
  return name ? stat(*name, true, status) : std::nullopt;
}

std::optional<std::string> Host::name_of(int fd) const {
  const std::scoped_lock lock(mutex_);
  const auto found = descriptors_.find(fd);
  if (found == descriptors_.end()) return std::nullopt;
  return found->second.name;
}

std::optional<int> Host::read_link(const std::string &name, std::string &target) const {
  const std::optional<Place> place = locate(name, false);
  if (!place) return std::nullopt;
  if (!place->kind) return fail(ENOENT);
  if (place->kind != FileTree::Kind::link) return fail(EINVAL);
  target = place->text;
  return 0;
}

std::optional<int> Host::canonical(const std::string &name, std::string &result) const {
  const std::optional<Place> place = locate(name);
  if (!place) return std::nullopt;
  if (!place->kind) return fail(ENOENT);
  result = place->name;
  return 0;
}

std::optional<int> Host::list(const std::string &name, std::vector<DirectoryEntry> &entries) const {
  std::vector<std::string> names;
  std::string directory;
  {
    const std::scoped_lock lock(mutex_);
    const auto found = tree_.find(name);
    if (!found) return std::nullopt;
    if (found->entry == nullptr) return fail(ENOENT);
    if (found->entry->kind != FileTree::Kind::directory) return fail(ENOTDIR);
    directory = found->name;
    for (const auto &[child, unused] : found->entry->children)
      names.push_back(child);
  }
  for (const std::string &child : names) {
    Status status;
    if (stat(directory + "/" + child, false, status) != 0) continue;  // it is not there now
    entries.push_back({child, status.mode & S_IFMT});
  }
  return 0;
}

bool Host::knows_machine() const {
  const std::scoped_lock lock(mutex_);
  return knows_machine_;
}

std::optional<std::string> Host::machine() const {
  const std::scoped_lock lock(mutex_);
  return machine_;
}

}  // namespace sim
