// The geometry of a disk, read from its mode pages and its capacity.
#include "kzddl/kzgeom.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "base/bytes.h"
#include "base/cancellation.h"
#include "base/memory.h"
#include "kzddl/kzmodesense.h"
#include "kzddl/kzreadcap.h"
#include "kzddl/solgeom.h"

using namespace kzddl;

static_assert(sizeof(disk_geom) == 48);
static_assert(offsetof(disk_geom, flags) == 20);
static_assert(offsetof(disk_geom, capacity) == 24);
static_assert(offsetof(disk_geom, reserved) == 32);

namespace {

constexpr int format_device_page = 3;
constexpr int rigid_disk_geometry_page = 4;
constexpr int page_size = 24;

/// Reads the current values of a mode page that must have the stated size.
int read_mode_page(odh *path, int code, Buffer &page) {
  int length = 0;
  unsigned char *data = nullptr;
  int conflict = 0;
  const int error = do_mode_sense(path, 0, 0, code, &length, &data, &conflict);
  if (error != 0) return error;
  page.reset(data);
  return length == page_size ? 0 : EINVAL;
}

struct Capacity {
  std::uint64_t last_lba;
  std::uint32_t block_length;
};

int read_capacity(odh *path, Capacity &capacity) {
  constexpr std::uint32_t beyond_32_bits = 0xFFFFFFFF;
  int length = 0;
  unsigned char *data = nullptr;
  if (const int error = do_read_capacity(path, 0, 0, 0, &length, &data); error != 0) return error;
  const Buffer answer_10(data);
  capacity = {load_be32(data), load_be32(data + 4)};
  if (capacity.last_lba != beyond_32_bits) return 0;

  if (const int error = do_read_capacity_16(path, 0, 0, 0, &length, &data); error != 0) {
    return error;
  }
  const Buffer answer_16(data);
  // The legacy request of IA-64 brings the short answer again.
  if (length < 12) return EINVAL;
  capacity = {load_be64(data), load_be32(data + 8)};
  return 0;
}

/// The cylinder count that the capacity gives, where it differs from what the disk says.
void derive_cylinders(disk_geom &geom) {
  const std::uint32_t sectors_per_cylinder = geom.sectors_per_track * geom.heads;
  const auto derived = static_cast<std::uint32_t>(geom.capacity / sectors_per_cylinder);
  if (derived == geom.cylinders) return;
  geom.cylinders = derived;
  geom.flags |= KZDDL_GEOM_DERIVED;
}

}  // namespace

std::int32_t get_geometry_info(const char *path, disk_geom *geom) {
  struct stat node;
  if (stat(path, &node) != 0) return -1;
  if (std::strlen(path) >= sizeof odh::devname) return -1;  // a cut name would be another node
  const CancellationPutOff uncancelled;
  const auto device = zeroed_record<odh>();
  if (device == nullptr) return -1;
  std::strcpy(device->devname, path);
  device->dev = device->blkdev = node.st_rdev;
  *geom = {};

  Buffer page;
  if (const int error = read_mode_page(device.get(), format_device_page, page); error != 0) {
    return error;
  }
  geom->sectors_per_track = load_be16(&page[10]);
  geom->bytes_per_sector = load_be16(&page[12]);
  if (const int error = read_mode_page(device.get(), rigid_disk_geometry_page, page); error != 0) {
    return error;
  }
  geom->cylinders = load_be24(&page[2]);
  geom->heads = page[5];
  geom->rotation_rate = load_be16(&page[20]);

  Capacity capacity{};
  if (const int error = read_capacity(device.get(), capacity); error != 0) return error;
  geom->capacity = capacity.last_lba + 1;
  if (geom->bytes_per_sector != 0) {
    geom->capacity *= capacity.block_length / geom->bytes_per_sector;
  }
  if (geom->heads == 0 || geom->sectors_per_track == 0) return EINVAL;
  derive_cylinders(*geom);
  return vol_sol_lbl_adj_geom(&geom->cylinders, &geom->sectors_per_track, &geom->heads,
                              geom->capacity);
}

std::int32_t gen_get_geometry_info(odh path, disk_geom *geom) {
  return get_geometry_info(path.devname, geom);
}
