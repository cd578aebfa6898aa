// A device that lies: it fails, cuts, lengthens and garbles what another device answers.
//
// The seed decides everything: the same commands, sent one after another, get the same answers.
// Thread safety: every function may be called from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

#include "sim/device.h"

namespace sim {

/// Numbers that a seed decides, the same on every machine (SplitMix64).
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next();
  /// From 0 to `bound` - 1.
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(next() % bound); }
  bool one_in(std::size_t bound) { return below(bound) == 0; }
  std::uint8_t byte() { return static_cast<std::uint8_t>(next()); }
  Bytes bytes(std::size_t count);
  template <class List>
  auto pick(const List &list) {
    return std::data(list)[below(std::size(list))];
  }

 private:
  std::uint64_t state_;
};

class Hostile : public Device {
 public:
  /// Spoils the answers of `honest`; without it, makes all answers up.
  explicit Hostile(std::uint64_t seed, std::shared_ptr<Device> honest = nullptr);

  void connect(const Nexus &nexus) override;
  void keep_in(const std::filesystem::path &directory, const std::string &name) override;
  std::vector<TargetPortGroup> target_port_groups() override;
  Reply execute(const Command &command, const Port &port) override;

 private:
  using Spoil = void (Hostile::*)(std::span<const std::uint8_t> cdb, Reply &reply);
  static const Spoil spoils[];

  // Ways to spoil a reply.
  void fail_call(std::span<const std::uint8_t> cdb, Reply &reply);
  void fail_with_status(std::span<const std::uint8_t> cdb, Reply &reply);
  void fail_in_host(std::span<const std::uint8_t> cdb, Reply &reply);
  void fail_in_driver(std::span<const std::uint8_t> cdb, Reply &reply);
  void add_sense(std::span<const std::uint8_t> cdb, Reply &reply);
  void lie_in_length(std::span<const std::uint8_t> cdb, Reply &reply);
  void lie_in_residual(std::span<const std::uint8_t> cdb, Reply &reply);
  void change_bytes(std::span<const std::uint8_t> cdb, Reply &reply);
  void fill(std::span<const std::uint8_t> cdb, Reply &reply);
  void replace(std::span<const std::uint8_t> cdb, Reply &reply);
  void truncate(std::span<const std::uint8_t> cdb, Reply &reply);
  void lengthen(std::span<const std::uint8_t> cdb, Reply &reply);

  Bytes sense();

  std::mutex mutex_;
  Random random_;
  std::size_t temper_;  ///< of 16 answers so many are spoilt
  std::shared_ptr<Device> honest_;
};

}  // namespace sim
