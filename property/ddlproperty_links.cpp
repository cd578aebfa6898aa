#include "property/ddlproperty_links.h"

#include <cstdlib>

#include "base/check.h"
#include "base/memory.h"

namespace kzddl {

namespace {

/// Puts a record that leads to `to` into the list of `from`, as `insertion` says; false when
/// there is no memory for the record.
bool add_record(const asso &to, const asso &from, const char *insertion) {
  auto *record = static_cast<asso *>(std::malloc(sizeof(asso)));
  if (record == nullptr) return false;
  *record = to;
  check(from.assov->alist.insert(record) == record, insertion);
  ++from.assov->nasso;
  return true;
}

}  // namespace

bool make_link(const asso &side, const asso &other) {
  return add_record(side, other, "sl_insert(rasso.assov->alist, aptr)") &&
         add_record(other, side, "sl_insert(asso.assov->alist, aptr)");
}

void remove_link(const asso &side, const asso &other) {
  const Owned<asso> to_other(side.assov->alist.find(other));
  const Owned<asso> to_side(other.assov->alist.find(side));
  check(side.assov->alist.remove(other), "!sl_delete(asso.assov->alist, &rasso)");
  check(other.assov->alist.remove(side), "!sl_delete(rasso.assov->alist, &asso)");
  --side.assov->nasso;
  --other.assov->nasso;
}

std::int32_t all_links(const vnode &value, const char ***names_out, const char ***values_out) {
  ResultArray names(value.nasso);
  ResultArray values(value.nasso);
  std::int32_t num_elements = 0;
  value.alist.for_each([&](const asso &link) {
    names.add(link.assop->name);
    values.add(link.assov->value);
    ++num_elements;
  });
  check(num_elements == value.nasso, "num_elements == vnode->nasso");
  if (num_elements == 0) return 0;
  if (!names || !values) return -1;
  *names_out = names.release();
  *values_out = values.release();
  return num_elements;
}

}  // namespace kzddl
