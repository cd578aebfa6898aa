// Nexuses in the JSON that a unit's state is kept in.
#pragma once

#include <nlohmann/json.hpp>

#include "sim/device.h"

namespace sim {

inline void to_json(nlohmann::json &json, const Nexus &nexus) {
  json = {{"initiator", nexus.initiator}, {"target_port", nexus.target_port}};
}

inline void from_json(const nlohmann::json &json, Nexus &nexus) {
  json.at("initiator").get_to(nexus.initiator);
  json.at("target_port").get_to(nexus.target_port);
}

}  // namespace sim
