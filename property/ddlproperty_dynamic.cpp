// Look-ups that refresh a disk's dynamic attributes before they answer.
#include "kzddl/ddlproperty_dynamic.h"

#include <cstring>

#include "base/cancellation.h"
#include "base/memory.h"
#include "property/ddlproperty_links.h"
#include "property/ddlproperty_store.h"
#include "property/fetch.h"
#include "property/link_lookup.h"
#include "property/value_copies.h"

using namespace kzddl;

namespace {

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

  const CancellationPutOff uncancelled;
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

  const CancellationPutOff uncancelled;
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
