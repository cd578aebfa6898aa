// The fetch of a dynamic attribute from the array support library that knows it.
#pragma once

#include "property/typed_string.h"

namespace kzddl {

/// Fetches a dynamic attribute of a disk by the attribute's own entry point, else `attr` by that
/// of the disk's library. False when there is nobody to ask. The caller has put cancellation off:
/// blocks and perhaps a lock are held while the entry point runs.
bool fetch(const TypedString &disk, const TypedString &dynamic, const TypedString &library,
           const char *attr);

}  // namespace kzddl
