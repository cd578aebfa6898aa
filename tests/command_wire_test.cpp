// Every command by every way: its bytes on the wire, what it allocates, and what comes back when
// the device answers, when it refuses, when the call fails, when the node cannot be opened and
// when each allocation fails.
#include "support/command_table.h"
#include "support/failing_malloc.h"

namespace kzddl_test {
namespace {

class CommandWire : public CommandTable {
 protected:
  CommandWire() {
    use_device(std::make_shared<Answering>([](auto &) { return Reply::with(Bytes(300, 7)); }));
  }

  void check_block(const unsigned char *block, int length, std::size_t /*room*/) override {
    EXPECT_EQ(Bytes(block, block + length), Bytes(static_cast<std::size_t>(length), 7));
  }
  bool uses_control(const Command &command) const {
    return command.to == To::control || (command.to == To::either && !GetParam().direct());
  }
  bool is_old(const Command &command) const { return command.old || GetParam().ia64; }
  void expect_request(const Command &command);
};
INSTANTIATE_TEST_SUITE_P(, CommandWire, every_way, way_name);

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
    const long allocations = is_old(command) ? command.old_allocations : command.allocations;
    const int refused = is_old(command) ? command.old_refused_length : command.refused_length;
    const auto expect_result = [&](int result, int length) {
      EXPECT_EQ(command.call(), result);
      EXPECT_EQ(length_, length);
      EXPECT_EQ(host.open_descriptors(), 0);
      EXPECT_EQ(live_blocks(), 0);
    };
    length_ = untouched;
    {
      const CountMalloc counter;
      expect_result(0, command.answered_length);
      EXPECT_EQ(counter.count(), allocations);
    }
    expect_request(command);
    for (int n = 1; n <= allocations; ++n) {
      const FailMalloc fail(n);
      SCOPED_TRACE(n);
      // After the reply its length is known, but for those that are set on success alone.
      const bool is_known = n > 1 && refused == 255;
      expect_result(results.no_memory, is_known ? command.answered_length : refused);
      EXPECT_EQ(host.take_requests().size(), n > 1 ? 1u : 0u);
    }
    host.inject(node, {.reply = Reply::check_condition({0x05, 0x24, 0})});
    expect_result(results.refused, refused);
    for (const int error : {EIO, 0}) {  // a failing call that gives no reason counts as EIO
      host.inject(node, {.error = error});
      expect_result(results.failed, refused);
    }
    EXPECT_EQ(host.take_requests().size(), 3u);

    host.fail_open(control ? sim::control_node : node, EACCES);
    // The node is opened first, the control node with each request.
    expect_result(control ? results.no_control : results.no_node, control ? refused : untouched);
    host.fail_open(control ? sim::control_node : node, 0);
    EXPECT_TRUE(host.take_requests().empty());

    expect_result(0, command.answered_length);
    expect_request(command);  // the caller's data are as they were
  }
}

}  // namespace
}  // namespace kzddl_test
