#include "sim/fault.h"

#include <algorithm>

namespace sim {

using std::chrono::milliseconds;

bool Operations::contain(const Bytes &cdb) const {
  constexpr std::uint8_t service_action_bits = 0x1F;
  return empty() || std::ranges::any_of(*this, [&cdb](const Operation &operation) {
           if (operation.opcode != cdb[0]) return false;
           return !operation.service_action ||
                  (cdb.size() > 1 && *operation.service_action == (cdb[1] & service_action_bits));
         });
}

bool Fault::concerns(const Request &request) const {
  if (form && *form != request.form) return false;
  if (!opcode.contain(request.cdb)) return false;
  if (pages.empty()) return true;
  const Bytes &cdb = request.cdb;
  return cdb.size() > 2 && cdb[0] == opcode::inquiry && (cdb[1] & 1) != 0 &&
         std::ranges::find(pages, cdb[2]) != pages.end();
}

bool FaultList::Kept::has_begun() const {
  const auto *wait = std::get_if<milliseconds>(&fault.after);
  return wait != nullptr ? Clock::now() >= began + *wait : passed >= std::get<int>(fault.after);
}

bool FaultList::Kept::acts() const {
  if (!has_begun()) return false;
  const auto *lasts = std::get_if<milliseconds>(&fault.times);
  if (lasts == nullptr) return std::get<int>(fault.times) < 0 || met < std::get<int>(fault.times);
  const auto *wait = std::get_if<milliseconds>(&fault.after);
  return Clock::now() < began + (wait != nullptr ? *wait : milliseconds{}) + *lasts;
}

void FaultList::Kept::pass() {
  if (has_begun() || !std::holds_alternative<int>(fault.after)) return;
  ++passed;
  if (has_begun()) began = Clock::now();
}

std::optional<Gone> FaultList::gone() const {
  const auto found = std::ranges::find_if(
      faults_, [](const Kept &kept) { return kept.fault.gone && kept.acts(); });
  return found == faults_.end() ? std::nullopt : found->fault.gone;
}

void FaultList::count_gone() {
  for (Kept &kept : faults_) {
    if (!kept.fault.gone || !kept.acts()) continue;
    ++kept.met;
    return;
  }
}

FaultList::Effect FaultList::meet(const Request &request) {
  Effect effect;
  for (Kept &kept : faults_) {
    if (!kept.fault.concerns(request)) continue;
    if (!kept.acts()) {
      kept.pass();
      continue;
    }
    ++kept.met;
    effect.delay += kept.fault.delay;
    if (kept.fault.only_delays()) continue;
    effect.fault = kept.fault;
    break;
  }
  return effect;
}

}  // namespace sim
