#include "tools/geometry.h"

#include <fmt/format.h>

namespace tool {

View geometry_view(const std::string &title, const disk_geom &geometry) {
  const bool derived = (geometry.flags & KZDDL_GEOM_DERIVED) != 0;
  const auto number = [](auto count) { return fmt::format("{}", count); };
  ViewBuilder view(title);
  view.field("Cylinders", "cylinders",
             number(geometry.cylinders) + (derived ? ", derived from the capacity" : ""),
             geometry.cylinders);
  view.value("cylinders_derived", derived);
  view.field("Heads", "heads", number(geometry.heads), geometry.heads);
  view.field("Sectors per track", "sectors_per_track", number(geometry.sectors_per_track),
             geometry.sectors_per_track);
  view.field("Bytes per sector", "bytes_per_sector", number(geometry.bytes_per_sector),
             geometry.bytes_per_sector);
  view.field("Rotation rate", "rotation_rate", fmt::format("{} a minute", geometry.rotation_rate),
             geometry.rotation_rate);
  view.field("Capacity", "capacity", fmt::format("{} sectors", geometry.capacity),
             geometry.capacity);
  return view.build();
}

}  // namespace tool
