// The commands of the library, each with what it sends and what comes of it.
#pragma once

#include <functional>
#include <vector>

#include "kzddl/kzmodeselect.h"
#include "support/disk_test.h"

namespace kzddl_test {

/// Results when the device answers CHECK CONDITION, the call fails with EIO, and the node of the
/// device or the control node cannot be opened, and memory is short.
struct Results {
  int refused, failed, no_node, no_control, no_memory = ENOMEM;
};
inline constexpr Results usual{-9, EIO, EACCES, -19}, usual_old{-2, EIO, EACCES, -19};
inline constexpr Results pgr{PGR_CHECK_CONDITION, PGR_ERROR, PGR_ERROR, PGR_ERROR, PGR_NOMEM};

enum class To { either, node, control };

inline constexpr int untouched = -7;

struct Command {
  const char *name;
  std::function<int()> call;
  Bytes cdb;

  To to = To::either;
  bool old = false;  ///< always the legacy request
  int direction = SG_DXFER_FROM_DEV;
  unsigned length = 255, old_length = 255;
  unsigned direct_flags = O_RDONLY, indirect_flags = O_NONBLOCK;
  Results direct = usual, indirect = usual, old_results = usual_old;
  Bytes sent{};
  int answered_length = untouched;
  int refused_length = untouched, old_refused_length = untouched;  ///< what a refusal leaves
  long allocations = 0, old_allocations = 1;
  unsigned timeout = 20000;

  Command &on(To where) { return to = where, *this; }
  Command &legacy(To where = To::either) { return old = true, on(where); }
  Command &flags(unsigned one, unsigned other) {
    return direct_flags = one, indirect_flags = other, *this;
  }
  Command &reads(unsigned bytes, unsigned old_bytes) {
    return length = bytes, old_length = old_bytes, *this;
  }
  Command &moves_nothing() { return direction = SG_DXFER_NONE, length = old_length = 0, *this; }
  Command &sends(const Bytes &bytes) {
    sent = bytes, direction = SG_DXFER_TO_DEV, old_length = 0;
    return length = static_cast<unsigned>(bytes.size()), *this;
  }
  Command &gives(Results one, Results other, Results old_ones) {
    return direct = one, indirect = other, old_results = old_ones, *this;
  }
  /// Hands over a block that is `answered` bytes long; a refusal leaves these lengths.
  Command &hands(int answered, int refused = untouched, int old_refused = untouched) {
    answered_length = answered, refused_length = refused, old_refused_length = old_refused;
    return allocates(1, 2);
  }
  Command &allocates(long one, long other) {
    return allocations = one, old_allocations = other, *this;
  }
  Command &within(unsigned ms) { return timeout = ms, *this; }
};

class CommandTable : public WayTest {
 protected:
  std::vector<Command> commands();

  /// Looks at a block that was handed over: `room` bytes of which `length` count.
  virtual void check_block(const unsigned char *block, int length, std::size_t room) = 0;

  virtual void check(bool holds, const char *what) { EXPECT_TRUE(holds) << what; }

  int length_ = 0;  ///< what the last command left

 private:
  /// A command that hands over a block of `room` bytes (0: of its length) and its length.
  template <class Call>
  std::function<int()> reply(Call call, std::size_t room = 255) {
    return [this, call, room] {
      static unsigned char nothing[1];
      unsigned char *block = nothing;
      length_ = untouched;
      const int result = call(&length_, &block);
      check((block == nothing) == (result != 0), "success alone hands over a block");
      if (block == nothing) return result;
      const kzddl::Buffer owner(block);
      const int length = length_ == untouched ? 255 : length_;
      check_block(block, length, room == 0 ? static_cast<std::size_t>(length) : room);
      return result;
    };
  }
};

inline std::vector<Command> CommandTable::commands() {
  using std::bind_front;
  constexpr unsigned lo = 0x5678, hi = 0x1234, lba = 0x12345678, nb = O_NONBLOCK;
  odh *p = &path;
  const auto old = [](auto call, int indirect) {
    return [=](int *n, unsigned char **block) { return call(n, block, indirect); };
  };
  const auto sense = [p](int *n, unsigned char **block) {
    int conflict = 0;
    return do_mode_sense(p, 0, 0, 0x0A, n, block, &conflict);
  };
  const auto report = [this, p](auto op) {
    return reply([=](int *, unsigned char **block) { return op(p, block); });
  };
  const auto copy_results = [p](int *n, unsigned char **block) {
    return do_rcv_copy_results(p, 0, 3, 5, 0x123456, 0, reinterpret_cast<unsigned *>(n), block);
  };
  static unsigned char list[8] = {0, 0, 0, 0, 2, 0, 0, 1};
  static pgr_out_param keys{
      {0, 1, 2, 3, 4, 5, 6, 7}, {8, 9, 10, 11, 12, 13, 14, 15}, 0x01020304, 1, 0, {}};
  const Bytes sent(list, list + 8);
  const Bytes keys_sent{0,  1,  2,  3,  4, 5, 6, 7, 8, 9, 10, 11,
                        12, 13, 14, 15, 1, 2, 3, 4, 1, 0, 0,  0};
  static unsigned char data[36], sense_data[32], cdb[6] = {0x12, 0, 0, 0, 36, 0};
  static uscsi_cmd pass{};
  pass.uscsi_flags = USCSI_READ;
  pass.uscsi_cdb = cdb;
  pass.uscsi_cdblen = sizeof cdb;
  pass.uscsi_bufaddr = data;
  pass.uscsi_buflen = sizeof data;
  pass.uscsi_rqbuf = sense_data;
  pass.uscsi_rqlen = sizeof sense_data;

  const Bytes inquiry{0x12, 0, 0, 0, 255, 0}, page_83{0x12, 0xFF, 0x83, 0, 255, 0};
  const Bytes sense_all{0x1A, 0x08, 0xBF, 0, 255, 0}, sense_0A{0x1A, 0, 0x0A, 0, 255, 0};
  const Bytes changeable{0x1A, 0, 0x48, 0, 255, 0}, subpage{0x1A, 0, 0x4A, 0xF1, 255, 0};
  const Bytes select{0x15, 0x11, 0, 0, 8, 0};
  const Bytes groups{0xA3, 0x0A, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0, 0};
  const Bytes set_groups{0xA4, 0x0A, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0};
  const Bytes capacity{0x25, 1, 0x12, 0x34, 0x56, 0x78, 0, 0, 1, 0};
  const Bytes capacity_16{0x9E, 0x10, 0, 0, 0, 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 32, 1, 0};
  const Bytes reserve{0x5F, 0x06, 0x15, 0, 0, 0, 0, 0, 24, 0};
  const Bytes copy{0x84, 3, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34, 0x56, 0, 0};
  const Results rtpg{9, -1, EACCES, 19}, stpg{9, -1, 19, 19}, scsi{9, -1, EACCES, 19};
  const Results tur{-9, -1, 1, -19}, old_tur{2, -1, -1, 19, -1};
  const auto scsi_on_zeros = [p] {
    std::memset(data, 0, sizeof data);
    return do_scsi(p, &pass);
  };
  const bool ia64 = GetParam().ia64;
  const auto pgr_out = [&](const char *name, auto call) -> Command {
    return Command{name, call, reserve}.legacy().sends(keys_sent).gives(pgr, pgr, pgr);
  };
  const auto read_capacity = [&](const char *name, auto op) -> Command {
    Command command{name, reply(bind_front(op, p, 3, lba, 5), 8), capacity};
    return command.reads(8, 24).hands(8, 0, 24);
  };
  const auto ready = [&](const char *name, auto op) -> Command {
    return Command{name, bind_front(op, p), Bytes(6)}.moves_nothing().gives(tur, tur, old_tur);
  };
  const auto report_groups = [&](const char *name, auto op) -> Command {
    Command command{name, report(op), groups};
    return command.hands(untouched).flags(0, 0).gives(rtpg, rtpg, usual_old);
  };
  Command long_capacity = read_capacity("do_read_capacity_16", do_read_capacity_16);
  if (!ia64) long_capacity.cdb = capacity_16;  // the legacy path knows only the short one
  Command pass_through = {"do_scsi", scsi_on_zeros, Bytes(cdb, cdb + 6)};
  const auto c = [](const char *name, const auto &call, const Bytes &cdb) {
    return Command{name, call, cdb};
  };
  const auto inquiry_of = bind_front(do_inquiry, p, 0x1FF, 0x183, nb);
  const auto raw_1 = bind_front(do_mode_sense_raw1, lo, hi, 0, 1, 0x0A, 0xF1);
  const auto raw_1_old = bind_front(do_mode_sense_raw1_old, lo, hi, 0, 1, 0x0A, 0xF1);
  const auto select_old = bind_front(do_mode_select_raw_old, lo, hi, 1, 1, 8, list);
  const auto old_0 = old(bind_front(do_inquiry_old, p, 0, 0, 0), 0);
  const auto old_1 = old(bind_front(do_inquiry_old, p, 0, 0, nb), 1);
  const auto generic_old = bind_front(generic_mode_sense_old, p, 0, 1, 8);
  const auto capacity_old = bind_front(do_read_capacity_old, p, 3, lba, 5);
  return {
      c("do_inquiry", reply(inquiry_of), page_83).flags(nb, nb).hands(11, 0, 255),
      c("do_inquiry_32", reply(bind_front(do_inquiry_32, p, 0, 0, 0)), inquiry)
          .on(To::node)
          .hands(12, 0, 255),
      c("do_inquiry_old 0", reply(old_0), inquiry).legacy(To::node).hands(12, 0, 255),
      c("do_inquiry_old 1", reply(old_1), inquiry).legacy(To::control).hands(12, 0, 255),
      c("do_mode_sense_raw", reply(bind_front(do_mode_sense_raw, p, 1, 2, 0x3F)), sense_all)
          .hands(8),
      c("do_mode_sense", reply(sense, 0), sense_0A).hands(4).allocates(2, 3),
      c("generic_mode_sense_old 0", reply(old(generic_old, 0)), changeable)
          .legacy(To::node)
          .hands(8, 255, 255),
      c("generic_mode_sense_old 1", reply(old(generic_old, 1)), changeable)
          .legacy(To::control)
          .hands(8, 255, 255),
      c("do_mode_sense_raw1", reply(raw_1), subpage).on(To::control).hands(8, 255, 255),
      c("do_mode_sense_raw1_old", reply(raw_1_old), subpage).legacy(To::control).hands(8, 255, 255),
      c("do_mode_select_raw_old", select_old, select).legacy(To::control).sends(sent),
      c("do_mode_select_raw", bind_front(do_mode_select_raw, lo, hi, 1, 1, 8, list), select)
          .on(To::control)
          .sends(sent)
          .within(60000),
      read_capacity("do_read_capacity", do_read_capacity),
      read_capacity("do_read_capacity_32", do_read_capacity_32).on(To::node),
      read_capacity("do_read_capacity_35", do_read_capacity_35).on(To::control),
      long_capacity.on(To::control).reads(32, 24).hands(ia64 ? 8 : 32, 0, 24),
      c("do_read_capacity_old 0", reply(old(capacity_old, 0), 8), capacity)
          .legacy(To::node)
          .reads(8, 24)
          .hands(8, 24, 24),
      c("do_read_capacity_old 1", reply(old(capacity_old, 1), 8), capacity)
          .legacy(To::control)
          .reads(8, 24)
          .hands(8, 24, 24),
      report_groups("do_rtpg", do_rtpg),
      report_groups("do_report_target_port_group", do_report_target_port_group),
      c("do_stpg", bind_front(do_stpg, p, list, 8), set_groups)
          .flags(O_RDONLY, 0)
          .sends(sent)
          .gives(usual, stpg, usual_old),
      ready("do_tur", do_tur),
      ready("do_tur_32", do_tur_32).on(To::node),
      ready("do_tur_35", do_tur_35).on(To::control),
      // What the generic pass-through moves, it announces both ways to the legacy request.
      (ia64 ? pass_through.sends(Bytes(36)).on(To::node) : pass_through)
          .flags(O_RDONLY, 0)
          .reads(36, 36)
          .gives(scsi, scsi, usual_old),
      pgr_out("do_pgr_out", bind_front(do_pgr_out, p, 0x106, 0x10, 5, &keys)).flags(nb, nb),
      pgr_out("do_pgr_out_32", bind_front(do_pgr_out_32, node, 6, 0x10, 5, &keys))
          .flags(nb, nb)
          .on(To::node),
      pgr_out("do_pgr_out_35", bind_front(do_pgr_out_35, p, 6, 0x10, 5, &keys)).on(To::control),
      c("do_rcv_copy_results", reply(copy_results, 0), copy)
          .legacy(To::control)
          .hands(11, 255, 255),
  };
}

}  // namespace kzddl_test
