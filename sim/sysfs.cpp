#include "sim/sysfs.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <mutex>
#include <string_view>
#include <utility>

#include "base/bytes.h"

namespace sim {
namespace {

/// What the kernel remembers of a device, as INQUIRY told it. The device is asked when somebody
/// first looks, past what goes wrong on the path: as if the path had been well at boot.
class Memory {
 public:
  explicit Memory(std::shared_ptr<const Node> node) : node_(std::move(node)) {}

  /// A text field of the standard data, as the kernel prints it.
  std::optional<std::string> field(std::size_t offset, std::size_t length) {
    Bytes data = inquiry(0, 0);
    data.resize(std::max(data.size(), offset + length), ' ');
    const auto start = data.begin() + static_cast<std::ptrdiff_t>(offset);
    return std::string(start, start + static_cast<std::ptrdiff_t>(length)) + "\n";
  }

  std::optional<std::string> type() {
    const Bytes data = inquiry(0, 0);
    return std::to_string(data.empty() ? 0x1F : data[0] & 0x1F) + "\n";
  }

  /// A page that the list of pages names, whole.
  std::optional<std::string> page(std::uint8_t code) {
    const Bytes list = whole_page(0);
    if (list.size() < 4 || std::find(list.begin() + 4, list.end(), code) == list.end()) return {};
    const Bytes data = whole_page(code);
    if (data.empty()) return {};
    return std::string(data.begin(), data.end());
  }

 private:
  Bytes whole_page(std::uint8_t code) {
    Bytes data = inquiry(1, code);
    if (data.size() < 4 || data[1] != code) return {};
    data.resize(std::min<std::size_t>(data.size(), kzddl::load_be16(&data[2]) + 4));
    return data;
  }

  Bytes inquiry(std::uint8_t vital_product_data, std::uint8_t page) {
    const std::scoped_lock lock(mutex_);
    const auto [known, is_new] = replies_.try_emplace({vital_product_data, page});
    if (!is_new) return known->second;
    Bytes cdb(cdb_room);
    cdb[0] = opcode::inquiry;
    cdb[1] = vital_product_data;
    cdb[2] = page;
    kzddl::store_be16(&cdb[3], 0xFFFF);
    const Reply reply =
        node_->device->execute({.cdb = cdb, .initiator = node_->initiator}, node_->port);
    const bool is_good = reply.error == 0 && reply.host_status == 0 && reply.status == status::good;
    if (is_good) known->second = reply.data;
    return known->second;
  }

  const std::shared_ptr<const Node> node_;
  std::mutex mutex_;
  std::map<std::pair<std::uint8_t, std::uint8_t>, Bytes> replies_;
};

FileTree::Read text(std::string content) {
  return [content = std::move(content)] { return content; };
}

/// The places of a node: where it is, and the names of its kind that lead there.
struct Places {
  explicit Places(const Node &node) {
    constexpr std::string_view directory = "/dev/";
    if (!node.name.starts_with(directory)) return;
    name = node.name.substr(directory.size());
    if (name.find('/') != std::string::npos) {
      name.clear();
      return;
    }
    const bool is_block = node.kind == NodeKind::block;
    const std::string kind = is_block ? "block" : "scsi_generic";
    const std::string number = number_text(node.number);
    if (!node.address.empty()) {
      const std::string host = node.address.substr(0, node.address.find(':'));
      const std::string target = node.address.substr(0, node.address.rfind(':'));
      device = "devices/platform/host" + host + "/target" + target + "/" + node.address;
    }
    place = (device.empty() ? "devices/virtual" : device) + "/" + kind + "/" + name;
    links = {{"/sys/class/" + kind + "/" + name, "../../"},
             {is_block ? "/sys/dev/block/" + number : "/sys/dev/char/" + number, "../../"}};
    if (is_block) links.push_back({"/sys/block/" + name, "../"});
  }

  std::string name{};    ///< empty: it has no place
  std::string device{};  ///< the SCSI device's, from /sys; empty: there is none
  std::string place{};
  std::vector<std::pair<std::string, const char *>> links{};  ///< and the way from there to /sys
};

void add_scsi_device(FileTree &tree, const std::string &place,
                     const std::shared_ptr<const Node> &node, std::function<std::string()> state) {
  const auto known = tree.find(place + "/state");
  if (known && known->entry != nullptr && known->entry->owner != node->name) return;
  const std::string target = place.substr(0, place.rfind('/'));
  for (const std::string &directory : {target.substr(0, target.rfind('/')), target, place})
    tree.add_directory(directory);
  const auto memory = std::make_shared<Memory>(node);
  const auto add = [&](const char *name, FileTree::Read read) {
    tree.add_file(place + "/" + name, std::move(read), node->name);
  };
  add("vendor", [memory] { return memory->field(8, 8); });
  add("model", [memory] { return memory->field(16, 16); });
  add("rev", [memory] { return memory->field(32, 4); });
  add("type", [memory] { return memory->type(); });
  add("vpd_pg80", [memory] { return memory->page(0x80); });
  add("vpd_pg83", [memory] { return memory->page(0x83); });
  add("state", [state = std::move(state)] { return state() + "\n"; });
}

}  // namespace

std::string number_text(dev_t number) {
  return std::to_string(major(number)) + ":" + std::to_string(minor(number));
}

void add_to_sysfs(FileTree &tree, const std::shared_ptr<const Node> &node,
                  std::function<std::string()> state) {
  for (const char *directory : {"/sys/block", "/sys/class/block", "/sys/class/scsi_generic",
                                "/sys/dev/block", "/sys/dev/char"}) {
    tree.add_directory(directory);
  }
  const Places places(*node);
  if (places.name.empty()) return;
  for (const auto &[link, way] : places.links)
    tree.add_link(link, way + places.place, node->name);
  const std::string place = "/sys/" + places.place;
  tree.add_directory(place);
  tree.add_directory(place.substr(0, place.rfind('/')));
  const bool is_block = node->kind == NodeKind::block;
  tree.add_file(place + "/dev", text(number_text(node->number) + "\n"), node->name);
  tree.add_file(place + "/uevent",
                text("MAJOR=" + std::to_string(major(node->number)) +
                     "\nMINOR=" + std::to_string(minor(node->number)) + "\nDEVNAME=" + places.name +
                     "\n" + (is_block ? "DEVTYPE=disk\n" : "")),
                node->name);
  if (is_block) {
    tree.add_file(place + "/size", text(std::to_string(node->sectors) + "\n"), node->name);
  }
  if (places.device.empty()) return;
  tree.add_link(place + "/device", "../../../" + node->address, node->name);
  add_scsi_device(tree, "/sys/" + places.device, node, std::move(state));
}

void remove_from_sysfs(FileTree &tree, const Node &node) {
  const Places places(node);
  if (places.name.empty()) return;
  for (const auto &[link, way] : places.links)
    tree.remove(link);
  tree.remove("/sys/" + places.place);
}

}  // namespace sim
