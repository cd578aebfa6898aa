// Every command by every way: its bytes on the wire, and what comes back when the device refuses,
// when the call fails and when the node cannot be opened.
#include <functional>

#include "kzddl/kzmodeselect.h"
#include "support/disk_test.h"

namespace kzddl_test {
namespace {

/// Results when the device answers CHECK CONDITION, the call fails with EIO, and the node of the
/// device or the control node cannot be opened.
struct Results {
  int refused, failed, no_node, no_control;
};
constexpr Results usual{-9, EIO, EACCES, -19}, usual_old{-2, EIO, EACCES, -19};
constexpr Results pgr{PGR_CHECK_CONDITION, PGR_ERROR, PGR_ERROR, PGR_ERROR};

enum class To { either, node, control };

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
  int refused_length = -7, old_refused_length = -7;  ///< what a refusal leaves; -7: untouched
  unsigned timeout = 20000;

  Command on(To where) const {
    return with([=](Command &c) { c.to = where; });
  }
  Command legacy() const {
    return with([](Command &c) { c.old = true; });
  }
  Command flags(unsigned one, unsigned other) const {
    return with([=](Command &c) { c.direct_flags = one, c.indirect_flags = other; });
  }
  Command reads(unsigned bytes, unsigned old_bytes) const {
    return with([=](Command &c) { c.length = bytes, c.old_length = old_bytes; });
  }
  Command moves_nothing() const {
    return with([](Command &c) { c.direction = SG_DXFER_NONE, c.length = c.old_length = 0; });
  }
  Command sends(const Bytes &bytes) const {
    return with([&](Command &c) {
      c.sent = bytes, c.direction = SG_DXFER_TO_DEV, c.old_length = 0;
      c.length = static_cast<unsigned>(bytes.size());
    });
  }
  Command gives(Results one, Results other, Results old_ones) const {
    return with([=](Command &c) { c.direct = one, c.indirect = other, c.old_results = old_ones; });
  }
  Command leaves(int bytes, int old_bytes) const {
    return with([=](Command &c) { c.refused_length = bytes, c.old_refused_length = old_bytes; });
  }
  Command within(unsigned ms) const {
    return with([=](Command &c) { c.timeout = ms; });
  }

 public:
  template <class Change>
  Command with(Change change) const {
    Command changed = *this;
    change(changed);
    return changed;
  }
};

class CommandWire : public WayTest {
 protected:
  /// A command that hands over a block and its length.
  template <class Call>
  std::function<int()> reply(Call call) {
    return [this, call] {
      static unsigned char untouched[1];
      unsigned char *block = untouched;
      length_ = -7;
      const int result = call(&length_, &block);
      EXPECT_EQ(block == untouched, result != 0);
      if (block != untouched) std::free(block);
      return result;
    };
  }

  std::vector<Command> commands();
  void expect_request(const Command &command);

  bool uses_control(const Command &command) const {
    return command.to == To::control || (command.to == To::either && !GetParam().direct());
  }
  bool is_old(const Command &command) const { return command.old || GetParam().ia64; }

  int length_ = 0;
};
INSTANTIATE_TEST_SUITE_P(, CommandWire, every_way, way_name);

std::vector<Command> CommandWire::commands() {
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

  const Bytes inquiry{0x12, 0, 0, 0, 255, 0}, select{0x15, 0x11, 0, 0, 8, 0};
  const Bytes groups{0xA3, 0x0A, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0, 0};
  const Bytes set_groups{0xA4, 0x0A, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0};
  const Bytes capacity{0x25, 1, 0x12, 0x34, 0x56, 0x78, 0, 0, 1, 0};
  const Bytes capacity_16{0x9E, 0x10, 0, 0, 0, 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 32, 1, 0};
  const Bytes reserve{0x5F, 0x06, 0x15, 0, 0, 0, 0, 0, 24, 0};
  const Bytes copy{0x84, 3, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34, 0x56, 0, 0};
  const Results rtpg{9, -1, EACCES, 19}, stpg{9, -1, 19, 19}, scsi{9, -1, EACCES, 19};
  const Results tur{-9, -1, 1, -19}, old_tur{2, -1, -1, 19};
  const bool ia64 = GetParam().ia64;
  const auto pgr_out = [&](const char *name, auto call) {
    return Command{name, call, reserve}.legacy().sends(keys_sent).gives(pgr, pgr, pgr);
  };
  const auto read_capacity = [&](const char *name, auto op) {
    return Command{name, reply(bind_front(op, p, 3, lba, 5)), capacity}.reads(8, 24).leaves(0, 24);
  };
  const auto ready = [&](const char *name, auto op) {
    return Command{name, bind_front(op, p), Bytes(6)}.moves_nothing().gives(tur, tur, old_tur);
  };
  const auto report_groups = [&](const char *name, auto op) {
    return Command{name, report(op), groups}.flags(0, 0).gives(rtpg, rtpg, usual_old);
  };
  Command long_capacity = read_capacity("do_read_capacity_16", do_read_capacity_16);
  if (!ia64) long_capacity.cdb = capacity_16;  // the legacy path knows only the short one
  const Command pass_through = {"do_scsi", bind_front(do_scsi, p, &pass), Bytes(cdb, cdb + 6)};
  return {
      Command{"do_inquiry",
              reply(bind_front(do_inquiry, p, 0x1FF, 0x183, nb)),
              {0x12, 0xFF, 0x83, 0, 255, 0}}
          .flags(nb, nb)
          .leaves(0, 255),
      Command{"do_inquiry_32", reply(bind_front(do_inquiry_32, p, 0, 0, 0)), inquiry}
          .on(To::node)
          .leaves(0, 255),
      Command{"do_inquiry_old 0", reply(old(bind_front(do_inquiry_old, p, 0, 0, 0), 0)), inquiry}
          .on(To::node)
          .legacy()
          .leaves(0, 255),
      Command{"do_inquiry_old 1", reply(old(bind_front(do_inquiry_old, p, 0, 0, nb), 1)), inquiry}
          .on(To::control)
          .legacy()
          .leaves(0, 255),
      {"do_mode_sense_raw",
       reply(bind_front(do_mode_sense_raw, p, 1, 2, 0x3F)),
       {0x1A, 0x08, 0xBF, 0, 255, 0}},
      {"do_mode_sense", reply(sense), {0x1A, 0, 0x0A, 0, 255, 0}},
      Command{"generic_mode_sense_old",
              reply(old(bind_front(generic_mode_sense_old, p, 0, 1, 8), 0)),
              {0x1A, 0, 0x48, 0, 255, 0}}
          .on(To::node)
          .legacy()
          .leaves(255, 255),
      Command{"do_mode_sense_raw1",
              reply(bind_front(do_mode_sense_raw1, lo, hi, 0, 1, 0x0A, 0xF1)),
              {0x1A, 0, 0x4A, 0xF1, 255, 0}}
          .on(To::control)
          .leaves(255, 255),
      Command{"do_mode_select_raw", bind_front(do_mode_select_raw, lo, hi, 1, 1, 8, list), select}
          .on(To::control)
          .sends(sent)
          .within(60000),
      read_capacity("do_read_capacity", do_read_capacity),
      read_capacity("do_read_capacity_32", do_read_capacity_32).on(To::node),
      read_capacity("do_read_capacity_35", do_read_capacity_35).on(To::control),
      long_capacity.on(To::control).reads(32, 24),
      report_groups("do_rtpg", do_rtpg),
      report_groups("do_report_target_port_group", do_report_target_port_group),
      Command{"do_stpg", bind_front(do_stpg, p, list, 8), set_groups}
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
      Command{"do_rcv_copy_results", reply(copy_results), copy}
          .on(To::control)
          .legacy()
          .leaves(255, 255),
  };
}

void CommandWire::expect_request(const Command &command) {
  const Request request = only_request();
  const bool control = uses_control(command);
  EXPECT_EQ(request.node, node);
  EXPECT_EQ(request.cdb, command.cdb);
  EXPECT_EQ(request.data_out, command.sent);
  EXPECT_EQ(request.through_control_node, control);
  EXPECT_EQ(request.oflags, control ? command.indirect_flags : command.direct_flags);
  const bool own_code = is_old(command) || std::strcmp(GetParam().machine, "i686") == 0;
  EXPECT_EQ(request.control_request, !control   ? 0
                                     : own_code ? sim::indirect_request
                                                : static_cast<unsigned long>(SG_IO));
  EXPECT_EQ(request.form == Request::Form::legacy, is_old(command));
  if (is_old(command)) {
    EXPECT_EQ(request.in_length, command.sent.size());
    EXPECT_EQ(request.out_length, command.old_length);
  } else {
    expect_header(request, command.direction, command.length, command.timeout);
  }
}

TEST_P(CommandWire, RequestsAndResults) {
  for (const Command &command : commands()) {
    SCOPED_TRACE(command.name);
    const bool control = uses_control(command);
    const Results &results = is_old(command) ? command.old_results
                             : control       ? command.indirect
                                             : command.direct;
    length_ = -7;
    host.inject(node, {.reply = Reply::with(Bytes(300, 7))});
    EXPECT_EQ(command.call(), 0);
    expect_request(command);

    host.inject(node, {.reply = Reply::check_condition({0x05, 0x24, 0})});
    EXPECT_EQ(command.call(), results.refused);
    EXPECT_EQ(host.take_requests().size(), 1u);
    EXPECT_EQ(length_, is_old(command) ? command.old_refused_length : command.refused_length);

    host.inject(node, {.error = EIO});
    EXPECT_EQ(command.call(), results.failed);
    host.take_requests();

    host.fail_open(control ? sim::control_node : node, EACCES);
    EXPECT_EQ(command.call(), control ? results.no_control : results.no_node);
    if (!control) {
      EXPECT_EQ(length_, -7) << "the node is opened first";
    }
    host.fail_open(control ? sim::control_node : node, 0);
    EXPECT_TRUE(host.take_requests().empty());
    EXPECT_EQ(host.open_descriptors(), 0);
  }
}

}  // namespace
}  // namespace kzddl_test
