#include "sim/disk_json.h"

#include <algorithm>
#include <limits>

#include "capture/capture.h"

namespace sim {
namespace {

Bytes bytes(const Value &value) {
  try {
    return capture::parse_hex(value.text());
  } catch (const capture::Error &error) {
    value.fail(error.what());
  }
}

Bytes identifier(const Value &value) {
  Bytes naa = bytes(value);
  if (naa.size() != 8 && naa.size() != 16) value.fail("an NAA identifier has 8 or 16 bytes");
  return naa;
}

/// Put one after another, as they stand in the page.
Bytes read_designators(const Value &value) {
  constexpr std::size_t longest = 0xFFFF - 4;  // with the page's header: an allocation length
  Bytes all;
  for (const Value &each : value.list()) {
    const Bytes designator = bytes(each);
    all.insert(all.end(), designator.begin(), designator.end());
  }
  if (all.size() > longest) value.fail("at most " + std::to_string(longest) + " bytes");
  return all;
}

std::set<std::uint8_t> read_vpd_pages(const Value &value) {
  std::set<std::uint8_t> pages;
  if (value.is_false()) return pages;
  constexpr std::uint8_t known[] = {0x00, 0x80, 0x83};
  for (const Value &each : value.list())
    pages.insert(known[each.choice({"00", "80", "83"})]);
  return pages;
}

std::optional<Geometry> read_geometry(const Value &value) {
  if (value.is_false()) return std::nullopt;
  value.require_object({"sectors", "heads", "cylinders", "bytes_per_sector", "rotation_rate"});
  Geometry geometry;
  value.read("sectors", geometry.sectors);
  value.read("heads", geometry.heads);
  value.read("rotation_rate", geometry.rotation_rate);
  if (value.has("bytes_per_sector")) {
    geometry.bytes_per_sector = value.at("bytes_per_sector").number<std::uint16_t>();
  }
  if (value.has("cylinders")) {
    geometry.cylinders = static_cast<std::uint32_t>(value.at("cylinders").number(0, 0xFFFFFF));
  }
  return geometry;
}

std::uint32_t read_block_size(const Value &value) {
  const auto size = value.number<std::uint32_t>();
  if (size != 512 && size != 4096) value.fail("expected 512 or 4096");
  return size;
}

CopyParameters read_copy(const Value &value) {
  return static_cast<CopyParameters>(value.choice({"none", "mode page", "command"}));
}

TargetPortGroup read_group(const Value &value) {
  value.require_object({"id", "state", "preferred"});
  TargetPortGroup group{.id = value.at("id").number<std::uint16_t>()};
  if (value.has("state")) {
    group.state = static_cast<AccessState>(value.at("state").choice(
        {"active/optimized", "active/non-optimized", "standby", "unavailable"}));
  }
  value.read("preferred", group.preferred);
  return group;
}

std::vector<TargetPortGroup> read_groups(const Value &list) {
  std::vector<TargetPortGroup> groups;
  for (const Value &value : list.list()) {
    groups.push_back(read_group(value));
    const auto first = std::ranges::find(groups, groups.back().id, &TargetPortGroup::id);
    if (&*first != &groups.back()) value.at("id").fail("another group has this id");
  }
  return groups;
}

}  // namespace

DiskSpec read_disk(const Value &unit) {
  DiskSpec spec;
  unit.read("vendor", spec.vendor, 8);
  unit.read("product", spec.product, 16);
  unit.read("revision", spec.revision, 4);
  unit.read("serial", spec.serial, 128);
  if (unit.has("designators")) spec.designators = read_designators(unit.at("designators"));
  if (unit.has("vpd_pages")) spec.vpd_pages = read_vpd_pages(unit.at("vpd_pages"));
  if (unit.has("naa")) spec.naa = identifier(unit.at("naa"));
  if (unit.has("not_ready")) {
    const auto [asc, ascq] = unit.at("not_ready").pair('/', 16, 0xFF);
    spec.not_ready = Sense{0x02, static_cast<std::uint8_t>(asc), static_cast<std::uint8_t>(ascq)};
  }
  if (unit.has("blocks")) {
    spec.blocks = unit.at("blocks").number(1, std::numeric_limits<std::uint64_t>::max());
  }
  if (unit.has("block_size")) spec.block_size = read_block_size(unit.at("block_size"));
  unit.read("file", spec.file, 4096);
  if (unit.has("geometry")) spec.geometry = read_geometry(unit.at("geometry"));
  unit.read("answers_page_0", spec.answers_page_0);
  if (unit.has("copy")) spec.copy = read_copy(unit.at("copy"));
  if (unit.has("groups")) spec.groups = read_groups(unit.at("groups"));
  return spec;
}

}  // namespace sim
