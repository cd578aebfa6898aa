#include "tools/readiness.h"

#include <fmt/format.h>

#include <array>

#include "tools/query.h"

namespace tool {
namespace {

/// The sense data speak for themselves; that the key is NOT READY has been said already.
std::string reason_of(const Completion &completion) {
  if (!completion.sense) return completion.reason();
  if (completion.sense->key != sense_key::not_ready) return sense_words(*completion.sense);
  return additional_sense_words(completion.sense->asc, completion.sense->ascq);
}

constexpr std::string_view ready_word = "ready";
constexpr std::string_view not_ready_words = "not ready: ";

}  // namespace

std::string Readiness::words() const {
  return ready ? std::string(ready_word) : fmt::format("{}{}", not_ready_words, reason);
}

Readiness readiness_from_words(std::string_view words) {
  if (words == ready_word) return {.ready = true, .reason = {}};
  return {.ready = false, .reason = std::string(words.substr(not_ready_words.size()))};
}

Readiness test_unit_ready(Device &device) {
  constexpr std::array<std::uint8_t, 6> test_unit_ready_cdb{};
  const Completion completion = send_past_attention(device, test_unit_ready_cdb, {}, "ready");
  if (completion.ok()) return {.ready = true, .reason = {}};
  return {.ready = false, .reason = reason_of(completion), .sense = completion.sense};
}

}  // namespace tool
