// kzddl geometry: cylinders, heads and sectors as they go into a disk's label.
#include <cerrno>

#include "kzddl/kzmisc_geometry.h"
#include "tools/app.h"
#include "tools/command.h"
#include "tools/discovery.h"
#include "tools/geometry.h"
#include "tools/mode_sense.h"

namespace tool {
namespace {

std::string result_words_of_geometry(int result) {
  if (result == -1) return "the node cannot be examined, or its path has died";
  return result == EINVAL ? "mode pages 3 and 4 and the capacity make no geometry"
                          : result_words(result);
}

/// By way of the disk's multipath node and its cache; without one, from the node itself.
disk_geom geometry_of(Device &device, bool refresh) {
  disk_geom *cached = nullptr;
  if (ddl_get_geometry(device.path()->devname, &cached, refresh ? KZDDL_GEOMETRY_REFRESH : 0) ==
      0) {
    return *cached;
  }
  disk_geom geometry{};
  const int result = gen_get_geometry_info(*device.path(), &geometry);
  // Asked once more by themselves, the commands tell why there is no geometry.
  if (result < -1) {
    read_modes(device, {.page = 0x03}, "geometry");
    read_modes(device, {.page = 0x04}, "geometry");
  }
  if (result != 0) throw Error("geometry", device.name(), result_words_of_geometry(result));
  return geometry;
}

View device_view(Device &device, bool refresh) {
  return with_node(device.name(), geometry_view(device.name(), geometry_of(device, refresh)));
}

}  // namespace

Subcommand add_geometry(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("geometry", "Show the geometry that goes into a label");
  const auto disks = std::make_shared<std::vector<std::string>>();
  const auto refresh = std::make_shared<bool>(false);
  parser->add_option("DISK", *disks, "Device nodes")->required()->option_text("...");
  parser
      ->add_flag("--refresh", *refresh,
                 "Ask through each node named, also where nodes share a\nunit")
      ->option_text(" ");
  parser->footer(
      "Reads mode pages 3 and 4 and the capacity, by way of the multipath node where\n"
      "there is one: all paths of a unit then share one answer. The counts are fitted\n"
      "to the 16-bit fields of a label.\n\n"
      "Examples:\n"
      "  kzddl --sim geometry /dev/sda\n"
      "  kzddl geometry --route direct /dev/sda /dev/sdb --refresh --json");
  return {parser, [&context, disks, refresh] {
            discover_with(*disks);
            context.show_each(*disks,
                              [&](Device &device) { return device_view(device, *refresh); });
          }};
}

}  // namespace tool
