// Dynamic attributes: the public look-ups, which refresh a disk's attributes before they
// answer, and the fetch from the array support library that knows them.
#include "kzddl/ddlproperty_dynamic.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "kzddl/ddl_name_value_api.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "kzddl/kzmisc_log.h"
#include "property/links.h"

using namespace kzddl;

static_assert(sizeof(void *) != 4 || (sizeof(dip) == 136 && offsetof(dip, odh) == 132));

namespace {

/// One fetch's replacement of stored values at a time: a value that one fetch has stored and
/// not linked yet must not be removed by another as a value without links. Taken with no other
/// lock held, before the generic lock.
pthread_mutex_t replacement_mutex = PTHREAD_MUTEX_INITIALIZER;

struct FreeNameValue {
  template <class T>
  void operator()(T *block) const {
    nv_free(block);
  }
};
using OwnedName = std::unique_ptr<char, FreeNameValue>;
using OwnedStrings = std::unique_ptr<char *, FreeNameValue>;

/// The same value, type included?
bool is_same(const TypedString &a, const TypedString &b) {
  return a && b && ts_len(a.get()) == ts_len(b.get()) &&
         std::memcmp(a.get(), b.get(), ts_len(a.get())) == 0;
}

/// Typed strings copied out of the database, back to back in one block, in descending order.
class ValueCopies {
 public:
  /// Copies the values of `property` linked with `value`; false when memory is short.
  template <class Property>
  bool copy_linked(const Property &property, const vnode &value) {
    std::size_t size = 0;
    for_each_link_to(property, value,
                     [&size](const asso &link) { size += room(link.assov->value); });
    if (size == 0) return true;
    block_.reset(static_cast<char *>(std::malloc(size)));
    if (block_ == nullptr) return false;
    end_ = block_.get() + size;
    char *at = end_;
    for_each_link_to(property, value, [&at](const asso &link) {
      at -= room(link.assov->value);
      ts_copy(at, link.assov->value);
    });
    return true;
  }

  /// Null after the last.
  const char *first() const { return block_.get(); }
  const char *next(const char *copy) const {
    copy += room(copy);
    return copy != end_ ? copy : nullptr;
  }

  bool contain(const TypedString &value) const {
    const char *copy = first();
    while (copy != nullptr && !is_same(TypedString(copy), value))
      copy = next(copy);
    return copy != nullptr;
  }

 private:
  static std::size_t room(const char *typed) { return ts_len(typed) + 1; }

  Owned<char[]> block_;
  char *end_ = nullptr;
};

/// The first link in descending order with a value of `property` that accept(const asso &) takes,
/// or null.
template <class Property, class Accept>
const asso *first_link_to(const Property &property, const vnode &value, Accept accept) {
  const asso *first = nullptr;
  for_each_link_to(property, value, [&](const asso &link) {
    if (accept(link)) first = &link;
  });
  return first;
}

/// Copies the first value of `wanted` linked with value `x` of `property`; false without one.
bool copy_first_linked(const char *property, const TypedString &x, const char *wanted,
                       TypedString *copy) {
  const PropertyReader reader(property);
  const vnode *value = reader.find(x);
  const asso *link = value != nullptr ? first_link_to(wanted, *value, every_link) : nullptr;
  if (link == nullptr) return false;
  copy->copy(link->assov->value);
  return true;
}

/// The address kept in the first bytes of a value's payload, null when that is too short.
template <class Pointer>
Pointer address_in(const TypedString &value) {
  Pointer address = nullptr;
  if (value.length() >= sizeof address) std::memcpy(&address, value.text(), sizeof address);
  return address;
}

get_dynamic_attr_fn find_entry(const char *kind, const TypedString &lib, const char *path) {
  TypedString value;
  if (!copy_first_linked(kind, lib, KZDDL_PROP_ENTRY, &value)) {
    ddlmsg(0x70000, 9,
           "ddl_get_dynamic_attr: can't find get_dynamic_attr entry for library %s for device %s\n",
           lib.text(), path);
    return nullptr;
  }
  const auto entry = address_in<get_dynamic_attr_fn>(value);
  if (entry == nullptr) {
    ddlmsg(0x70000, 9,
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
    ddlmsg(0x70000, 9, "ddl_get_dynamic_attr: Could not do stat on path %s\n", path);
    return false;
  }
  *number = node.st_rdev;
  return true;
}

/// Asks a library for one attribute of the disk at `path`; false when there is no answer.
bool ask_library(get_dynamic_attr_fn entry, const char *kind, const TypedString &lib,
                 const char *path, const char *attr, OwnedStrings *answer) {
  std::uint64_t device_number = 0;
  std::uint64_t block_number = 0;
  char block_path[KZDDL_BLOCKPATH_SIZE];
  if (!read_device_number(path, &device_number)) return false;
  if (ddl_get_blockpath(path, block_path) != 0) {
    ddlmsg(0x70000, 9,
           "ddl_get_dynamic_attr: Could not obtain corresponding block device path for %s\n", path);
    return false;
  }
  if (!read_device_number(block_path, &block_number)) return false;

  const std::size_t path_size = std::strlen(path) + 1;
  if (path_size > KZDDL_DIP_PATH_SIZE) {
    ddlmsg(0x70000, 9, "ddl_get_dynamic_attr: No room in dip object for disk path %s\n", path);
    return false;
  }
  const Owned<dip> disk = zeroed_record<dip>();
  if (disk == nullptr) {
    ddlmsg(0x70000, 9,
           "ddl_get_dynamic_attr: Unable to obtain storage for dip object for disk path %s\n",
           path);
    return false;
  }
  const Owned<odh> device = zeroed_record<odh>();
  if (device == nullptr) {
    ddlmsg(0x70000, 9,
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

/// Makes `values` the disk's values of an attribute; false, with nothing changed, when memory is
/// short. A value that stays is not touched: threads may hold pointers to it.
bool replace_values(const TypedString &disk, const char *attr, std::span<char *const> values) {
  const MutexGuard one_at_a_time(
      {&replacement_mutex, "the replacement mutex", LockRank::replacement});
  ValueCopies old_values;
  {
    const PropertyReader disks(KZDDL_PROP_DISK);
    const vnode *value = disks.find(disk);
    if (value != nullptr && !old_values.copy_linked(attr, *value)) return false;
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
  return true;
}

/// Fetches attribute `attr` of a disk from the library registered for `lib`, a value of the
/// property `kind`, and stores it. 0, or -1 with the store as it was.
std::int32_t ddl_get_dynamic_attr(const TypedString &disk, const TypedString &lib, const char *attr,
                                  const char *kind) {
  const char *path = disk.text();
  const get_dynamic_attr_fn entry = find_entry(kind, lib, path);
  if (entry == nullptr) return -1;
  OwnedStrings list;
  if (!ask_library(entry, kind, lib, path, attr, &list)) return -1;

  const char *pair = list != nullptr && *list != nullptr ? *list : "";
  char *parsed_name = nullptr;
  if (const std::int32_t error = nv_get_name(pair, &parsed_name); error != 0) {
    ddlmsg(0x70000, 9, "ddl_get_dynamic_attr: %s %s get_name() error %d for %s\n", lib.text(), path,
           error, pair);
    return -1;
  }
  const OwnedName name(parsed_name);
  char **parsed_values = nullptr;
  const std::int32_t n = nv_get_value(pair, &parsed_values);
  if (n <= 0) {
    ddlmsg(0x70000, 9, "ddl_get_dynamic_attr: %s %s get_value() error %d for %s\n", lib.text(),
           path, n, pair);
    return -1;
  }
  const OwnedStrings values(parsed_values);
  if (std::strcmp(name.get(), attr) != 0) {
    ddlmsg(0x70000, 9,
           "ddl_get_dynamic_attr: %s %s requested attr name don't match returned attr name %s\n",
           lib.text(), path, name.get());
    return -1;
  }
  return replace_values(disk, attr, {values.get(), static_cast<std::size_t>(n)}) ? 0 : -1;
}

/// Fetches a dynamic attribute of a disk by the attribute's own entry point, else `attr` by that
/// of the disk's library. False when there is nobody to ask.
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

bool is_disk(const char *property) { return std::strcmp(property, KZDDL_PROP_DISK) == 0; }

/// Is there a link, and its property stored under exactly this name?
bool leads_exactly_to(const char *property, const asso *link) {
  return link != nullptr && std::strcmp(link->assop->name, property) == 0;
}

}  // namespace

std::int32_t get_asso_val_ts(const char *p, const char *v, const char *q, const char ***values) {
  if (!is_disk(p)) return ddl_get_asso_val_ts(p, v, q, values);
  const TypedString given(v);
  TypedString dynamic;
  TypedString library;
  {
    const PropertyReader disks(p, q);
    const vnode *found = disks.find(given);
    if (found == nullptr) return -1;
    const auto begins_q = [q](const asso &link) {
      const char *name = link.assov->value;
      return std::strncmp(text_of(name), q, payload_length(name)) == 0;
    };
    const asso *match = first_link_to(disks.dynamic(), *found, begins_q);
    if (match == nullptr) {
      if (disks.other().address == nullptr) return -1;
      return linked_values(disks.other(), *found, every_link, values);
    }
    dynamic.copy(match->assov->value);
    const asso *handled_by = first_link_to(KZDDL_PROP_LIBNAME, *found, every_link);
    if (handled_by != nullptr) library.copy(handled_by->assov->value);
  }

  // The arguments may point into the database, and at what the fetch removes.
  TypedString disk;
  disk.copy(given.get());
  const Owned<char[]> wanted(strdup(q));
  if (wanted == nullptr || !fetch(disk, dynamic, library, wanted.get())) {
    return ddl_get_asso_val_ts(p, v, q, values);
  }
  const std::int32_t n = ddl_get_asso_val_ts(KZDDL_PROP_DISK, disk.get(), wanted.get(), values);
  if (n <= 0) *values = nullptr;
  return n;
}

std::int32_t get_asso_val(const char *p, const char *v, const char *q, const char ***texts) {
  return as_texts(get_asso_val_ts(p, v, q, texts), texts);
}

std::int32_t get_asso_ts(const char *p, const char *v, const char ***names, const char ***values) {
  if (!is_disk(p)) return ddl_get_asso_ts(p, v, names, values);
  const TypedString given(v);
  TypedString disk;
  TypedString library;
  ValueCopies dynamic_names;
  {
    const PropertyReader disks(p);
    const vnode *found = disks.find(given);
    if (found == nullptr) return -1;
    const asso *dynamic = first_link_to(disks.dynamic(), *found, every_link);
    if (!leads_exactly_to(KZDDL_PROP_DYNAMIC, dynamic) ||
        !dynamic_names.copy_linked(disks.dynamic(), *found)) {
      return all_links(*found, names, values);
    }
    const asso *handled_by = first_link_to(KZDDL_PROP_LIBNAME, *found, every_link);
    if (leads_exactly_to(KZDDL_PROP_LIBNAME, handled_by)) library.copy(handled_by->assov->value);
  }

  // The arguments may point into the database, and at what the fetches remove.
  disk.copy(given.get());
  for (const char *name = dynamic_names.first(); name != nullptr; name = dynamic_names.next(name)) {
    if (!fetch(disk, TypedString(name), library, text_of(name))) break;
  }
  const std::int32_t n = ddl_get_asso_ts(KZDDL_PROP_DISK, disk.get(), names, values);
  if (n <= 0) *names = *values = nullptr;
  return n;
}

std::int32_t get_asso(const char *p, const char *v, const char ***names, const char ***texts) {
  return as_texts(get_asso_ts(p, v, names, texts), texts);
}
