#include "sim/disk.h"

#include <algorithm>
#include <cstdio>

#include "base/bytes.h"
#include "sim/copy_parameters.h"
#include "sim/inquiry.h"
#include "sim/json_file.h"

namespace sim {
namespace {

using kzddl::load_be16;
using kzddl::load_be32;
using kzddl::load_be64;

constexpr std::uint8_t service_action_bits = 0x1F;
constexpr std::uint8_t read_capacity_16_action = 0x10;
constexpr std::uint8_t operating_parameters_action = 0x03;
constexpr std::uint8_t target_port_groups_action = 0x0A;

/// What one command may move: all that a READ(10) of 512-byte blocks can ask for.
constexpr std::uint64_t max_transfer = 32 * 1024 * 1024;

Bytes cut(Bytes data, std::size_t allocation_length) {
  data.resize(std::min(data.size(), allocation_length));
  return data;
}

/// The parameter list that a command announces; the initiator may have sent less.
std::span<const std::uint8_t> parameter_list(const Command &command, std::size_t length) {
  if (command.data_out.size() < length) refuse(invalid_field_in_cdb);
  return command.data_out.first(length);
}

void require_service_action(const Command &command, std::uint8_t action) {
  if ((command.cdb[1] & service_action_bits) != action) refuse(invalid_field_in_cdb);
}

struct Blocks {
  std::uint64_t lba;
  std::uint32_t count;
};

/// What a READ or WRITE names, in its 10- or its 16-byte form.
Blocks blocks_of(std::span<const std::uint8_t> cdb) {
  if (cdb[0] == opcode::read_16 || cdb[0] == opcode::write_16) {
    return {load_be64(&cdb[2]), load_be32(&cdb[10])};
  }
  return {load_be32(&cdb[2]), load_be16(&cdb[7])};
}

}  // namespace

/// What other processes share: brought up to date while it is held, and kept when it has changed.
class Disk::SharedState {
 public:
  explicit SharedState(Disk &disk) : disk_(disk) {
    if (!disk_.file_) return;
    lock_.emplace(*disk_.file_);
    kept_ = disk_.file_->load();
    if (!kept_.is_null()) restore();
  }

  void keep() {
    if (!lock_) return;
    const nlohmann::json state = current();
    if (state != kept_) disk_.file_->save(state);
  }

 private:
  nlohmann::json current() const {
    return {{"groups", disk_.groups_.state()},
            {"reservations", disk_.reservations_.state()},
            {"attentions", disk_.attentions_.state()}};
  }

  void restore() {
    try {
      disk_.groups_.restore(kept_.at("groups"));
      disk_.reservations_.restore(kept_.at("reservations"));
      disk_.attentions_.restore(kept_.at("attentions"));
    } catch (const nlohmann::json::exception &error) {
      disk_.file_->fail(JsonError(error).what());
    }
  }

  Disk &disk_;
  std::optional<StateFile::Lock> lock_;
  nlohmann::json kept_;
};

Disk::Disk(DiskSpec spec)
    : spec_(std::move(spec)),
      storage_(spec_.blocks, spec_.block_size),
      modes_(spec_),
      groups_(spec_.groups) {
  if (!spec_.file.empty()) storage_.keep_in(spec_.file);
}

void Disk::connect(const Nexus &nexus) {
  const std::scoped_lock lock(mutex_);
  SharedState shared(*this);
  attentions_.connect(nexus);
  shared.keep();
}

void Disk::keep_in(const std::filesystem::path &directory, const std::string &name) {
  std::string own;
  for (const std::uint8_t byte : spec_.naa) {
    for (const int digit : {byte >> 4, byte & 0x0F})
      own += "0123456789abcdef"[digit];
  }
  const std::scoped_lock lock(mutex_);
  if (file_) return;  // another path was first
  if (own.empty()) own = name;
  file_.emplace(directory / (own + ".json"));
  if (spec_.file.empty()) storage_.keep_in(directory / (own + ".blocks"));
  SharedState(*this).keep();
}

std::vector<TargetPortGroup> Disk::target_port_groups() {
  const std::scoped_lock lock(mutex_);
  return groups_.list();
}

Reply Disk::execute(const Command &command, const Port &port) {
  const std::scoped_lock lock(mutex_);
  try {
    SharedState shared(*this);
    Reply reply = answer(command, port);
    shared.keep();
    return reply;
  } catch (const StateError &error) {
    constexpr std::uint16_t adapter_error = 7;
    std::fprintf(stderr, "simulated host: %s\n", error.what());
    return {.host_status = adapter_error};
  }
}

Reply Disk::answer(const Command &command, const Port &port) {
  const Nexus nexus{command.initiator, port.relative_id};
  attentions_.connect(nexus);
  try {
    admit(rule_of(command.cdb[0]), nexus, port);
    return Reply::with(perform(command, nexus, port));
  } catch (const Termination &end) {
    const bool has_sense = end.status == status::check_condition;
    return {.status = end.status, .sense = has_sense ? format(end.sense) : Bytes{}};
  }
}

void Disk::admit(const CommandRule &rule, const Nexus &nexus, const Port &port) {
  if (rule.tells_unit_attentions) {
    if (const auto attention = attentions_.take(nexus)) refuse(*attention);
  }
  groups_.admit(port.group, rule.access);
  if (reservations_.refuses(nexus, rule.effect)) refuse_with_conflict();
  if (rule.needs_ready && spec_.not_ready) refuse(*spec_.not_ready);
}

Bytes Disk::perform(const Command &command, const Nexus &nexus, const Port &port) {
  const std::span<const std::uint8_t> cdb = command.cdb;
  switch (cdb[0]) {
    case opcode::test_unit_ready:
      return {};
    case opcode::request_sense:
      return request_sense(command, nexus);
    case opcode::inquiry:
      return cut(inquiry_data(spec_, cdb, port), load_be16(&cdb[3]));
    case opcode::mode_sense_6:
      return cut(modes_.sense(cdb), cdb[4]);
    case opcode::mode_select_6:
      if (modes_.select(cdb, parameter_list(command, cdb[4]))) {
        attentions_.raise_for_others(nexus, mode_parameters_changed);
      }
      return {};
    case opcode::read_capacity_10:
      return read_capacity_10(command);
    case opcode::service_action_in_16:
      require_service_action(command, read_capacity_16_action);
      return read_capacity_16(command);
    case opcode::read_10:
    case opcode::read_16:
      return read(command);
    case opcode::write_10:
    case opcode::write_16:
      write(command);
      return {};
    case opcode::persistent_reserve_in:
      return cut(reservations_.in(cdb), load_be16(&cdb[7]));
    case opcode::persistent_reserve_out:
      persistent_reserve_out(command, nexus);
      return {};
    case opcode::maintenance_in:
      if (groups_.empty()) break;
      require_service_action(command, target_port_groups_action);
      return cut(groups_.report(), load_be32(&cdb[6]));
    case opcode::maintenance_out:
      if (groups_.empty()) break;
      set_target_port_groups(command, nexus);
      return {};
    case opcode::receive_copy_results:
      if (spec_.copy != CopyParameters::command) break;
      require_service_action(command, operating_parameters_action);
      return cut(copy_operating_parameters(), load_be32(&cdb[10]));
    default:
      break;
  }
  refuse(invalid_operation_code);
}

void Disk::persistent_reserve_out(const Command &command, const Nexus &nexus) {
  const std::uint32_t length = load_be32(&command.cdb[5]);
  if (length != Reservations::parameter_list_size) refuse(parameter_list_length_error);
  reservations_.out(command.cdb, parameter_list(command, length), nexus);
}

void Disk::set_target_port_groups(const Command &command, const Nexus &nexus) {
  require_service_action(command, target_port_groups_action);
  if (groups_.set(parameter_list(command, load_be32(&command.cdb[6])))) {
    attentions_.raise_for_others(nexus, access_state_changed);
  }
}

Bytes Disk::request_sense(const Command &command, const Nexus &nexus) {
  constexpr std::uint8_t descriptor_format = 0x01;
  const std::optional<Sense> attention = attentions_.take(nexus);
  const Sense sense = attention ? *attention : spec_.not_ready.value_or(Sense{});
  const bool descriptor = (command.cdb[1] & descriptor_format) != 0;
  return cut(descriptor ? sense.descriptor() : sense.fixed(), command.cdb[4]);
}

Bytes Disk::read_capacity_10(const Command &command) const {
  constexpr std::uint64_t beyond = 0xFFFFFFFF;  // READ CAPACITY(16) must be asked
  constexpr std::uint8_t partial_medium = 0x01;
  const bool has_address = load_be32(&command.cdb[2]) != 0;
  if (has_address && (command.cdb[8] & partial_medium) == 0) refuse(invalid_field_in_cdb);
  Bytes data(8);
  const std::uint64_t last = storage_.blocks() - 1;
  kzddl::store_be32(&data[0], static_cast<std::uint32_t>(std::min(last, beyond)));
  kzddl::store_be32(&data[4], storage_.block_size());
  return data;
}

Bytes Disk::read_capacity_16(const Command &command) const {
  Bytes data(32);
  kzddl::store_be64(&data[0], storage_.blocks() - 1);
  kzddl::store_be32(&data[8], storage_.block_size());
  return cut(std::move(data), load_be32(&command.cdb[10]));
}

void Disk::require_range(std::uint64_t lba, std::uint32_t count) const {
  if (!storage_.contains(lba, count)) refuse(lba_out_of_range);
  if (std::uint64_t{count} * storage_.block_size() > max_transfer) refuse(invalid_field_in_cdb);
}

Bytes Disk::read(const Command &command) const {
  const auto [lba, count] = blocks_of(command.cdb);
  require_range(lba, count);
  return storage_.read(lba, count);
}

void Disk::write(const Command &command) {
  const auto [lba, count] = blocks_of(command.cdb);
  const std::span<const std::uint8_t> data = command.data_out;
  require_range(lba, count);
  if (modes_.write_protected()) refuse(software_write_protected);
  // Nothing came with a request that travelled as a read: targets end it well and write nothing.
  if (data.empty()) return;
  if (data.size() != std::size_t{count} * storage_.block_size()) refuse(invalid_field_in_cdb);
  storage_.write(lba, data);
}

Bytes Disk::format(const Sense &sense) const {
  return modes_.descriptor_sense() ? sense.descriptor() : sense.fixed();
}

}  // namespace sim
