#include "sim/unit_attentions.h"

#include <array>

#include "sim/nexus_json.h"

namespace sim {

using nlohmann::json;

json UnitAttentions::state() const {
  json state = json::array();
  for (const auto &[nexus, pending] : pending_) {
    json list = json::array();
    for (const Sense &sense : pending)
      list.push_back({sense.key, sense.asc, sense.ascq});
    state.push_back({{"nexus", nexus}, {"pending", list}});
  }
  return state;
}

void UnitAttentions::restore(const json &state) {
  for (const json &kept : state) {
    std::deque<Sense> &pending = pending_[kept.at("nexus").get<Nexus>()];
    pending.clear();
    for (const json &sense : kept.at("pending")) {
      const auto [key, asc, ascq] = sense.get<std::array<std::uint8_t, 3>>();
      pending.push_back({key, asc, ascq});
    }
  }
}

}  // namespace sim
