#include "property/fetch.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>

#include "base/log.h"
#include "kzddl/array_support.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "kzddl/ddlproperty_sys.h"
#include "kzddl/kzmisc_log.h"
#include "nv/name_value.h"
#include "property/ddlproperty_store.h"
#include "property/guards.h"
#include "property/link_lookup.h"
#include "property/value_copies.h"

namespace kzddl {

static_assert(sizeof(void *) != 4 || (sizeof(dip) == 136 && offsetof(dip, odh) == 132));

namespace {

/// One fetch's replacement of stored values at a time: a value that one fetch has stored and
/// not linked yet must not be removed by another as a value without links. Taken with no other
/// lock held, before the generic lock.
pthread_mutex_t replacement_mutex = PTHREAD_MUTEX_INITIALIZER;

/// The address kept in the first bytes of a value's payload; bytes that it leaves out are zero.
template <class Pointer>
Pointer address_in(const TypedString &value) {
  Pointer address = nullptr;
  std::memcpy(&address, value.text(), std::min<std::size_t>(value.length(), sizeof address));
  return address;
}

get_dynamic_attr_fn find_entry(const char *kind, const TypedString &lib, const char *path) {
  TypedString value;
  if (!copy_first_linked(kind, lib, KZDDL_PROP_ENTRY, &value)) {
    ddlmsg(log::facility, log::failure,
           "ddl_get_dynamic_attr: can't find get_dynamic_attr entry for library %s for device %s\n",
           lib.text(), path);
    return nullptr;
  }
  const auto entry = address_in<get_dynamic_attr_fn>(value);
  if (entry == nullptr) {
    ddlmsg(log::facility, log::failure,
           "ddl_get_dynamic_attr: no get_dynamic_attr function defined for library %s for device "
           "%s\n",
           lib.text(), path);
  }
  return entry;
}

/// The mutex under which a library's entry point is called, if any.
Mutex serialising_mutex(const char *kind, const TypedString &lib) {
  TypedString value;
  if (!copy_first_linked(kind, lib, KZDDL_PROP_HANDLER, &value)) return {};
  auto *handler = address_in<unsigned char *>(value);
  if (handler == nullptr || (handler[KZDDL_HANDLER_FLAGS] & KZDDL_HANDLER_SERIALISE) == 0) {
    return {};
  }
  return {reinterpret_cast<pthread_mutex_t *>(handler + KZDDL_HANDLER_MUTEX), "a handler mutex",
          LockRank::handler};
}

bool read_device_number(const char *path, std::uint64_t *number) {
  struct stat node;
  if (stat(path, &node) != 0) {
    ddlmsg(log::facility, log::failure, "ddl_get_dynamic_attr: Could not do stat on path %s\n",
           path);
    return false;
  }
  *number = node.st_rdev;
  return true;
}

/// Asks a library for one attribute of the disk at `path`; false when there is no answer.
bool ask_library(get_dynamic_attr_fn entry, const char *kind, const TypedString &lib,
                 const char *path, const char *attr, NameValue<char *> *answer) {
  std::uint64_t device_number = 0;
  std::uint64_t block_number = 0;
  char block_path[KZDDL_BLOCKPATH_SIZE];
  if (!read_device_number(path, &device_number)) return false;
  if (ddl_get_blockpath(path, block_path) != 0) {
    ddlmsg(log::facility, log::failure,
           "ddl_get_dynamic_attr: Could not obtain corresponding block device path for %s\n", path);
    return false;
  }
  if (!read_device_number(block_path, &block_number)) return false;

  const std::size_t path_size = std::strlen(path) + 1;
  if (path_size > KZDDL_DIP_PATH_SIZE) {
    ddlmsg(log::facility, log::failure,
           "ddl_get_dynamic_attr: No room in dip object for disk path %s\n", path);
    return false;
  }
  const Owned<dip> disk = zeroed_record<dip>();
  if (disk == nullptr) {
    ddlmsg(log::facility, log::failure,
           "ddl_get_dynamic_attr: Unable to obtain storage for dip object for disk path %s\n",
           path);
    return false;
  }
  const Owned<odh> device = zeroed_record<odh>();
  if (device == nullptr) {
    ddlmsg(log::facility, log::failure,
           "ddl_get_dynamic_attr: Unable to obtain storage for odh object for disk path %s\n",
           path);
    return false;
  }
  std::memcpy(disk->path, path, path_size);
  disk->odh = device.get();
  std::memcpy(device->devname, path, path_size);
  device->dev = device_number;
  device->blkdev = block_number;

  char **list = nullptr;
  const MutexGuard serialised(serialising_mutex(kind, lib));
  if (entry(*disk, attr, &list) != 0) return false;
  answer->reset(list);
  return true;
}

/// Makes `values` the disk's values of an attribute. A value that stays is not touched: threads
/// may hold pointers to it. With memory short for the old values' copies nothing changes; a new
/// value that cannot be stored is left out.
void replace_values(const TypedString &disk, const char *attr, std::span<char *const> values) {
  const MutexGuard one_at_a_time(
      {&replacement_mutex, "the replacement mutex", LockRank::replacement});
  ValueCopies old_values;
  {
    const PropertyReader disks(KZDDL_PROP_DISK);
    const vnode *value = disks.find(disk);
    if (value != nullptr && !old_values.copy_linked(attr, *value)) return;
  }
  for (const char *typed = old_values.first(); typed != nullptr; typed = old_values.next(typed)) {
    const TypedString old(typed);
    const auto is_old = [&old](const char *value) { return is_same(TypedString(value), old); };
    if (std::any_of(values.begin(), values.end(), is_old)) continue;
    delete_asso_ts(KZDDL_PROP_DISK, disk.get(), attr, typed);
    delete_unlinked_value(attr, old);
  }
  for (const char *value : values) {
    if (old_values.contain(TypedString(value))) continue;
    const char *const one[] = {value, nullptr};
    set_property(attr, one);
    set_asso(KZDDL_PROP_DISK, disk.get(), attr, value);
  }
}

/// Fetches attribute `attr` of a disk from the library registered for `lib`, a value of the
/// property `kind`, and stores what it answers, if it does.
void ddl_get_dynamic_attr(const TypedString &disk, const TypedString &lib, const char *attr,
                          const char *kind) {
  const char *path = disk.text();
  const get_dynamic_attr_fn entry = find_entry(kind, lib, path);
  if (entry == nullptr) return;
  NameValue<char *> list;
  if (!ask_library(entry, kind, lib, path, attr, &list)) return;

  const char *pair = list != nullptr && *list != nullptr ? *list : "";
  char *parsed_name = nullptr;
  if (const std::int32_t error = nv_get_name(pair, &parsed_name); error != 0) {
    ddlmsg(log::facility, log::failure, "ddl_get_dynamic_attr: %s %s get_name() error %d for %s\n",
           lib.text(), path, error, pair);
    return;
  }
  const NameValue<char> name(parsed_name);
  char **parsed_values = nullptr;
  const std::int32_t n = nv_get_value(pair, &parsed_values);
  if (n <= 0) {
    ddlmsg(log::facility, log::failure, "ddl_get_dynamic_attr: %s %s get_value() error %d for %s\n",
           lib.text(), path, n, pair);
    return;
  }
  const NameValue<char *> values(parsed_values);
  if (std::strcmp(name.get(), attr) != 0) {
    ddlmsg(log::facility, log::failure,
           "ddl_get_dynamic_attr: %s %s requested attr name don't match returned attr name %s\n",
           lib.text(), path, name.get());
    return;
  }
  replace_values(disk, attr, {values.get(), static_cast<std::size_t>(n)});
}

}  // namespace

bool fetch(const TypedString &disk, const TypedString &dynamic, const TypedString &library,
           const char *attr) {
  TypedString own_entry;
  if (copy_first_linked(KZDDL_PROP_DYNAMIC, dynamic, KZDDL_PROP_ENTRY, &own_entry)) {
    ddl_get_dynamic_attr(disk, dynamic, dynamic.text(), KZDDL_PROP_DYNAMIC);
    return true;
  }
  if (!library) return false;
  ddl_get_dynamic_attr(disk, library, attr, KZDDL_PROP_LIBNAME);
  return true;
}

}  // namespace kzddl
