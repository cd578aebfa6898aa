// The cache of disk geometries, and the geometry as a dynamic attribute.
#include "kzddl/kzmisc_geometry.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "base/driver.h"
#include "base/log.h"
#include "base/memory.h"
#include "kzddl/kzmisc_log.h"
#include "nv/name_value.h"
#include "property/link_lookup.h"

using namespace kzddl;

disk_geom_entry *disk_geom_headp = nullptr;

namespace {

constexpr char block_directory[] = "/dev/kz/jox";
constexpr char raw_directory[] = "/dev/kz/rjox";

constexpr int failed = 1;

/// A node name or path: 128 characters and a NUL.
using NodeName = std::array<char, 129>;

/// What the node of a disk is: its path and its number.
struct Node {
  NodeName path;
  std::uint64_t number;
};

/// False, with a message, for a name that does not fit: a cut one would be another disk's.
bool fits(int length, const char *name) {
  if (length >= 0 && static_cast<std::size_t>(length) < std::tuple_size_v<NodeName>) return true;
  ddlmsg(log::facility, log::failure, "get_dynamic_geometry:name of node %s is too long. \n", name);
  return false;
}

/// Finds the name of the disk's multipath node in the property database.
bool find_node_name(const char *disk, NodeName &name) {
  const char **values = nullptr;
  if (get_asso_val(KZDDL_PROP_DISK, disk, KZDDL_PROP_JOX_DEVICE, &values) <= 0) return false;
  std::free(values);
  // Copied under the locks: what the look-up has found, if need be fetched, may be gone by now.
  TypedString found;
  if (!copy_first_linked(KZDDL_PROP_DISK, TypedString(disk), KZDDL_PROP_JOX_DEVICE, &found)) {
    return false;
  }
  return fits(std::snprintf(name.data(), name.size(), "%s", found.text()), found.text());
}

bool find_node(const char *directory, const NodeName &name, Node &node) {
  if (!fits(std::snprintf(node.path.data(), node.path.size(), "%s/%s", directory, name.data()),
            name.data())) {
    return false;
  }
  struct stat status;
  if (stat(node.path.data(), &status) != 0) {
    ddlmsg(log::facility, log::failure, "get_dynamic_geometry:stat on node %s failed. \n",
           node.path.data());
    return false;
  }
  node.number = status.st_rdev;
  return true;
}

/// The link that leads to the entry of a block device, or to the end of the list.
disk_geom_entry **find_entry(std::uint64_t blkdev) {
  disk_geom_entry **link = &disk_geom_headp;
  while (*link != nullptr && (*link)->blkdev != blkdev)
    link = &(*link)->next;
  return link;
}

/// Asks the disk, and puts its entry at the head of the cache. Null when that fails.
disk_geom_entry *query(const odh &path) {
  auto entry = zeroed_record<disk_geom_entry>();
  if (entry == nullptr) {
    ddlmsg(log::facility, log::failure, "get_dynamic_geometry:Memory allocation failed \n");
    return nullptr;
  }
  if (gen_get_geometry_info(path, &entry->geom) != 0) return nullptr;
  entry->blkdev = path.blkdev;
  entry->next = disk_geom_headp;
  return disk_geom_headp = entry.release();
}

/// Finds the geometry of a disk and hands it to `use`, with the cache locked.
template <class Use>
int use_geometry(const char *disk, bool refresh, const Use &use) {
  NodeName name;
  Node block;
  Node raw;
  if (!find_node_name(disk, name) || !find_node(block_directory, name, block) ||
      !find_node(raw_directory, name, raw)) {
    return failed;
  }
  odh path{};
  std::strcpy(path.devname, raw.path.data());
  path.dev = raw.number;
  path.blkdev = block.number;

  // Held across the query: every request for a geometry waits meanwhile, for other disks too.
  const MutexGuard cache(geometry_mutex());
  disk_geom_entry **link = find_entry(block.number);
  disk_geom_entry *entry = *link;
  if (entry != nullptr && refresh) {
    *link = entry->next;
    std::free(entry);
    entry = nullptr;
    ddlmsg(log::facility, log::notice,
           "get_dynamic_geometry: Forcing refresh of information for %s:%s\n", disk,
           raw.path.data());
  }
  if (entry == nullptr) entry = query(path);
  if (entry == nullptr) return failed;
  use(entry->geom);
  return 0;
}

}  // namespace

std::int32_t ddl_get_geometry(const char *disk, disk_geom **geom, std::uint8_t flags) {
  return use_geometry(disk, (flags & KZDDL_GEOMETRY_REFRESH) != 0,
                      [geom](disk_geom &cached) { *geom = &cached; });
}

std::int32_t get_dynamic_geometry(dip disk, const char *attr, char ***list) {
  if (std::strcmp(attr, KZDDL_PROP_GEOMETRY) != 0) return failed;

  // Copied under the lock: a refresh by another thread releases the cached record.
  std::array<char, KZDDL_TS_HEADER_SIZE + sizeof(disk_geom) + 1> value{
      KZDDL_TS_MARKER, static_cast<char>(KZDDL_GEOMETRY_TYPE), sizeof(disk_geom)};
  const int error = use_geometry(disk.path, false, [&value](const disk_geom &cached) {
    std::memcpy(value.data() + KZDDL_TS_HEADER_SIZE, &cached, sizeof cached);
  });
  if (error != 0) return error;

  char *text = nullptr;
  if (nv_set_value(&text, KZDDL_PROP_GEOMETRY, value.data()) != 0) return failed;
  const NameValue<char> pair(text);
  return nv_create_list(list, pair.get(), nullptr) == 1 ? 0 : failed;
}
