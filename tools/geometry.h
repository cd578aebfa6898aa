// The label geometry of a disk, for people and for programs.
#pragma once

#include <string>

#include "kzddl/kzgeom.h"
#include "tools/view.h"

namespace tool {

View geometry_view(const std::string &title, const disk_geom &geometry);

}  // namespace tool
