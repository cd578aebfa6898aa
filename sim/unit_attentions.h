// Unit attentions: what a target tells each nexus once, in place of the next command's answer.
#pragma once

#include <algorithm>
#include <deque>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>

#include "sim/device.h"

namespace sim {

/// Not safe for concurrent use: the disk's mutex guards it.
class UnitAttentions {
 public:
  /// The target knows the nexus from now on.
  void connect(const Nexus &nexus) { pending_[nexus]; }

  void raise(const Nexus &nexus, const Sense &attention) {
    std::deque<Sense> &pending = pending_[nexus];
    if (std::find(pending.begin(), pending.end(), attention) == pending.end()) {
      pending.push_back(attention);
    }
  }

  /// For every nexus but the one whose command brought it about.
  void raise_for_others(const Nexus &cause, const Sense &attention) {
    for (const auto &[nexus, unused] : pending_) {
      if (nexus != cause) raise(nexus, attention);
    }
  }

  /// The oldest one, which is then told.
  std::optional<Sense> take(const Nexus &nexus) {
    std::deque<Sense> &pending = pending_[nexus];
    if (pending.empty()) return std::nullopt;
    const Sense attention = pending.front();
    pending.pop_front();
    return attention;
  }

  /// What is pending, and back again: what is kept for other processes.
  nlohmann::json state() const;
  void restore(const nlohmann::json &state);

 private:
  std::map<Nexus, std::deque<Sense>> pending_;
};

}  // namespace sim
