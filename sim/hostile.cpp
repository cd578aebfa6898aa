#include "sim/hostile.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace sim {
namespace {

/// Longer than any reply that is asked for with a one-byte length, and than a legacy sense area.
constexpr std::size_t longest_garbage = 600;

/// Where a reply says how long it or a part of it is, or how much of something there is.
struct Field {
  std::size_t offset;
  std::size_t width;
};

std::span<const Field> length_fields(std::span<const std::uint8_t> cdb) {
  static constexpr Field inquiry[] = {{4, 1}};
  static constexpr Field vpd[] = {{2, 2}, {3, 1}, {7, 1}, {19, 1}, {27, 1}};
  static constexpr Field mode_sense[] = {{0, 1}, {3, 1}, {5, 1}, {13, 1}};
  static constexpr Field capacity_10[] = {{0, 4}, {4, 4}};
  static constexpr Field capacity_16[] = {{0, 8}, {8, 4}};
  static constexpr Field reservations[] = {{4, 4}, {6, 2}, {7, 1}};
  static constexpr Field groups[] = {{0, 4}, {3, 1}, {11, 1}, {23, 1}};
  static constexpr Field copy_results[] = {{0, 4}, {3, 1}, {43, 1}};
  static constexpr Field other[] = {{0, 1}, {0, 4}, {2, 2}, {3, 1}, {4, 1}, {4, 4}};
  switch (cdb[0]) {
    case opcode::inquiry:
      return (cdb[1] & 1) != 0 ? std::span<const Field>(vpd) : inquiry;
    case opcode::mode_sense_6:
      return mode_sense;
    case opcode::read_capacity_10:
      return capacity_10;
    case opcode::service_action_in_16:
      return capacity_16;
    case opcode::persistent_reserve_in:
      return reservations;
    case opcode::maintenance_in:
      return groups;
    case opcode::receive_copy_results:
      return copy_results;
    default:
      return other;
  }
}

}  // namespace

std::uint64_t Random::next() {
  std::uint64_t value = state_ += 0x9E3779B97F4A7C15;
  value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9;
  value = (value ^ value >> 27) * 0x94D049BB133111EB;
  return value ^ value >> 31;
}

Bytes Random::bytes(std::size_t count) {
  Bytes list(count);
  std::ranges::generate(list, [this] { return byte(); });
  return list;
}

// Of lengths twice: wrong ones find most faults.
const Hostile::Spoil Hostile::spoils[] = {
    &Hostile::fail_call,      &Hostile::fail_with_status, &Hostile::fail_in_host,
    &Hostile::fail_in_driver, &Hostile::add_sense,        &Hostile::lie_in_length,
    &Hostile::lie_in_length,  &Hostile::lie_in_residual,  &Hostile::change_bytes,
    &Hostile::fill,           &Hostile::replace,          &Hostile::truncate,
    &Hostile::lengthen,
};

Hostile::Hostile(std::uint64_t seed, std::shared_ptr<Device> honest)
    : random_(seed), honest_(std::move(honest)) {
  static constexpr std::size_t tempers[] = {1, 4, 8, 16};
  temper_ = random_.pick(tempers);
}

void Hostile::connect(const Nexus &nexus) {
  if (honest_ != nullptr) honest_->connect(nexus);
}

void Hostile::keep_in(const std::filesystem::path &directory, const std::string &name) {
  if (honest_ != nullptr) honest_->keep_in(directory, name);
}

std::vector<TargetPortGroup> Hostile::target_port_groups() {
  return honest_ != nullptr ? honest_->target_port_groups() : std::vector<TargetPortGroup>{};
}

Reply Hostile::execute(const Command &command, const Port &port) {
  const std::scoped_lock lock(mutex_);
  Reply reply = honest_ != nullptr ? honest_->execute(command, port)
                                   : Reply::with(random_.bytes(random_.below(longest_garbage)));
  if (random_.below(16) >= temper_) return reply;
  do {
    (this->*random_.pick(spoils))(command.cdb, reply);
  } while (random_.one_in(3));
  return reply;
}

void Hostile::fail_call(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  static constexpr int errors[] = {EPERM,  EIO,    ENXIO,  EAGAIN,    ENOMEM,    EFAULT, EBUSY,
                                   ENODEV, EINVAL, ENOTTY, EOVERFLOW, ETIMEDOUT, EINTR};
  reply.error = random_.pick(errors);
}

void Hostile::fail_with_status(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  static constexpr std::uint8_t statuses[] = {status::check_condition,
                                              status::check_condition,
                                              status::busy,
                                              status::reservation_conflict,
                                              0x04,
                                              status::task_set_full,
                                              status::task_aborted};
  reply.status = random_.one_in(8) ? random_.byte() : random_.pick(statuses);
  reply.sense = sense();
}

void Hostile::fail_in_host(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  reply.host_status = random_.one_in(4) ? static_cast<std::uint16_t>(random_.next())
                                        : static_cast<std::uint16_t>(1 + random_.below(15));
}

void Hostile::fail_in_driver(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  reply.driver_status = random_.one_in(4) ? static_cast<std::uint16_t>(random_.next())
                                          : static_cast<std::uint16_t>(random_.below(9));
}

void Hostile::add_sense(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  reply.sense = sense();
}

void Hostile::lie_in_length(std::span<const std::uint8_t> cdb, Reply &reply) {
  const Field field = random_.pick(length_fields(cdb));
  if (reply.data.size() < field.offset + field.width) return;
  std::uint8_t *const bytes = &reply.data[field.offset];
  std::uint64_t truth = 0;
  for (std::size_t i = 0; i < field.width; ++i)
    truth = truth << 8 | bytes[i];
  const std::uint64_t lies[] = {0,         1,         truth - 1,           truth + 1,
                                truth / 2, truth * 2, ~std::uint64_t{0},   ~std::uint64_t{0} - 7,
                                0x7F,      0x80,      random_.below(4096), random_.next()};
  std::uint64_t lie = random_.pick(lies);
  for (std::size_t i = field.width; i-- > 0; lie >>= 8)
    bytes[i] = static_cast<std::uint8_t>(lie);
}

void Hostile::lie_in_residual(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  const int lies[] = {0,
                      -1,
                      1,
                      std::numeric_limits<int>::min(),
                      std::numeric_limits<int>::max(),
                      static_cast<int>(random_.below(512)),
                      static_cast<int>(random_.next())};
  reply.residual = random_.pick(lies);
}

void Hostile::change_bytes(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  if (reply.data.empty()) return;
  for (std::size_t count = 1 + random_.below(8); count-- > 0;)
    reply.data[random_.below(reply.data.size())] = random_.byte();
}

void Hostile::fill(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  std::ranges::fill(reply.data, random_.one_in(2) ? 0xFF : 0x00);
}

void Hostile::replace(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  reply.data = random_.bytes(random_.below(longest_garbage));
}

void Hostile::truncate(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  reply.data.resize(random_.below(reply.data.size() + 1));
}

void Hostile::lengthen(std::span<const std::uint8_t> /*cdb*/, Reply &reply) {
  const Bytes more = random_.bytes(random_.below(longest_garbage));
  reply.data.insert(reply.data.end(), more.begin(), more.end());
}

Bytes Hostile::sense() {
  static constexpr Sense senses[] = {
      target_port_in_standby, invalid_operation_code, lba_out_of_range,      invalid_field_in_cdb,
      reservations_preempted, access_state_changed,   unrecovered_read_error};
  const Sense chosen = random_.pick(senses);
  Bytes data;
  switch (random_.below(4)) {
    case 0:
      return {};
    case 1:
      return random_.bytes(random_.below(longest_garbage));
    case 2:
      data = chosen.fixed();
      break;
    default:
      data = chosen.descriptor();
  }
  if (random_.one_in(4)) data[7] = random_.byte();  // its additional length
  if (random_.one_in(4)) data.resize(random_.below(data.size()));
  return data;
}

}  // namespace sim
