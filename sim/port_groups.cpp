#include "sim/port_groups.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/bytes.h"

namespace sim {
namespace {

constexpr std::size_t header_size = 4;

}  // namespace

PortGroups::PortGroups(const std::vector<TargetPortGroup> &groups) {
  for (const TargetPortGroup &group : groups) {
    groups_.push_back({group});
  }
}

void PortGroups::admit(std::uint16_t id, Access access) const {
  const auto found =
      std::ranges::find(groups_, id, [](const Group &each) { return each.group.id; });
  if (found == groups_.end()) return;
  const AccessState state = found->group.state;
  if (state == AccessState::standby && access == Access::medium) refuse(target_port_in_standby);
  if (state == AccessState::unavailable && access != Access::any) refuse(target_port_unavailable);
}

Bytes PortGroups::report() const {
  constexpr std::size_t descriptor_size = 8;
  constexpr std::uint8_t preferred = 0x80;
  constexpr std::uint8_t four_states_supported = 0x0F;
  constexpr std::uint8_t altered_by_set_target_port_groups = 0x01;
  Bytes data(header_size);
  for (const auto &[group, was_set] : groups_) {
    Bytes descriptor(descriptor_size);
    descriptor[0] = static_cast<std::uint8_t>(static_cast<int>(group.state) |
                                              (group.preferred ? preferred : 0));
    descriptor[1] = four_states_supported;
    kzddl::store_be16(&descriptor[2], group.id);
    descriptor[5] = was_set ? altered_by_set_target_port_groups : 0;
    descriptor[7] = static_cast<std::uint8_t>(group.ports.size());
    data.insert(data.end(), descriptor.begin(), descriptor.end());
    for (const std::uint16_t port : group.ports) {
      data.insert(data.end(),
                  {0, 0, static_cast<std::uint8_t>(port >> 8), static_cast<std::uint8_t>(port)});
    }
  }
  kzddl::store_be32(&data[0], static_cast<std::uint32_t>(data.size() - header_size));
  return data;
}

bool PortGroups::set(std::span<const std::uint8_t> list) {
  constexpr std::size_t descriptor_size = 4;
  constexpr std::uint8_t state_bits = 0x0F;
  if (list.size() <= header_size) refuse(invalid_field_in_parameter_list);
  auto rest = list.subspan(header_size);
  if (rest.size() % descriptor_size != 0) refuse(parameter_list_length_error);

  auto updated = groups_;
  bool changed = false;
  for (; !rest.empty(); rest = rest.subspan(descriptor_size)) {
    const std::uint16_t id = kzddl::load_be16(&rest[2]);
    const auto found =
        std::ranges::find(updated, id, [](const Group &each) { return each.group.id; });
    const auto state = static_cast<AccessState>(rest[0] & state_bits);
    if (found == updated.end() || state > AccessState::unavailable) {
      refuse(invalid_field_in_parameter_list);
    }
    changed = changed || state != found->group.state;
    found->group.state = state;
    found->was_set = true;
  }
  groups_ = std::move(updated);
  return changed;
}

std::vector<TargetPortGroup> PortGroups::list() const {
  std::vector<TargetPortGroup> groups;
  for (const Group &each : groups_)
    groups.push_back(each.group);
  return groups;
}

nlohmann::json PortGroups::state() const {
  auto state = nlohmann::json::array();
  for (const auto &[group, was_set] : groups_) {
    state.push_back(
        {{"id", group.id}, {"state", static_cast<unsigned>(group.state)}, {"was_set", was_set}});
  }
  return state;
}

void PortGroups::restore(const nlohmann::json &state) {
  for (const nlohmann::json &kept : state) {
    for (auto &[group, was_set] : groups_) {
      if (group.id != kept.at("id").get<std::uint16_t>()) continue;
      group.state = static_cast<AccessState>(kept.at("state").get<std::uint8_t>() & 0x03);
      was_set = kept.at("was_set").get<bool>();
    }
  }
}

}  // namespace sim
