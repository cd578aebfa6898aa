#include "sim/fault_json.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <string_view>

namespace sim {
namespace {

using std::chrono::milliseconds;

struct Failure {
  const char *name;
  Reply reply{};
  std::optional<Gone> gone{};
};

const std::vector<Failure> &failures() {
  static const std::vector<Failure> list{
      {"timeout", {.host_status = host_status::time_out}},
      {"transport", {.host_status = host_status::no_connect}},
      {"removed", {}, Gone::removed},
      {"offline", *Fault::offline().reply, Gone::offline},
      {"busy", {.status = status::busy}},
      {"reservation conflict", {.status = status::reservation_conflict}},
      {"task set full", {.status = status::task_set_full}},
      {"task aborted", {.status = status::task_aborted}},
  };
  return list;
}

struct NamedOperation {
  std::string_view name;
  Operation operation;
};

constexpr NamedOperation named_operations[] = {
    {"TEST UNIT READY", {opcode::test_unit_ready}},
    {"REQUEST SENSE", {opcode::request_sense}},
    {"INQUIRY", {opcode::inquiry}},
    {"MODE SELECT(6)", {opcode::mode_select_6}},
    {"MODE SENSE(6)", {opcode::mode_sense_6}},
    {"READ CAPACITY(10)", {opcode::read_capacity_10}},
    {"READ CAPACITY(16)", {opcode::service_action_in_16, 0x10}},
    {"READ(10)", {opcode::read_10}},
    {"READ(16)", {opcode::read_16}},
    {"WRITE(10)", {opcode::write_10}},
    {"WRITE(16)", {opcode::write_16}},
    {"PERSISTENT RESERVE IN", {opcode::persistent_reserve_in}},
    {"PERSISTENT RESERVE OUT", {opcode::persistent_reserve_out}},
    {"RECEIVE COPY RESULTS", {opcode::receive_copy_results}},
    {"REPORT LUNS", {opcode::report_luns}},
    {"REPORT TARGET PORT GROUPS", {opcode::maintenance_in, 0x0A}},
    {"SET TARGET PORT GROUPS", {opcode::maintenance_out, 0x0A}},
};

/// "04/02": bytes in hexadecimal with "/" between them; none where it is anything else.
Bytes parse_bytes(std::string_view text) {
  Bytes bytes;
  for (const char *at = text.data(), *const end = at + text.size();; ++at) {
    std::uint8_t byte = 0;
    const auto [next, error] = std::from_chars(at, end, byte, 16);
    if (error != std::errc{}) return {};
    bytes.push_back(byte);
    if (next == end) return bytes;
    if (*next != '/') return {};
    at = next;
  }
}

void read_failure(const Value &value, Fault &fault) {
  const std::string text = value.text();
  const auto known = std::ranges::find(failures(), text, &Failure::name);
  if (known != failures().end()) {
    fault.reply = known->reply;
    fault.gone = known->gone;
    return;
  }
  const Bytes sense = parse_bytes(text);
  if (sense.size() == 3 && sense[0] <= 0x0F) {
    fault.reply = Reply::check_condition({sense[0], sense[1], sense[2]});
    return;
  }
  std::string expected;
  for (const Failure &failure : failures())
    expected += std::string("\"") + failure.name + "\", ";
  value.fail("expected " + expected + "or sense data as in \"6/29/00\"");
}

Extent read_extent(const Value &value, std::uint64_t least) {
  constexpr std::string_view unit = " ms";
  if (!value.is_text()) return static_cast<int>(value.number(least, INT_MAX));
  const std::string text = value.text();
  unsigned time = 0;
  const char *const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, time);
  if (error != std::errc{} || std::string_view(rest, end) != unit) {
    value.fail("expected a number of requests, or a time as in \"500 ms\"");
  }
  return milliseconds(time);
}

milliseconds read_delay(const Value &value) {
  constexpr std::uint64_t day = 24 * 60 * 60 * 1000;
  return milliseconds(value.number(0, day));
}

Operation read_operation(const Value &value) {
  const std::string text = value.text();
  const auto known = std::ranges::find(named_operations, text, &NamedOperation::name);
  if (known != std::end(named_operations)) return known->operation;
  const Bytes codes = parse_bytes(text);
  if (codes.size() == 1) return {codes[0]};
  if (codes.size() == 2 && codes[1] <= 0x1F) return {codes[0], codes[1]};
  value.fail(
      "expected the name of an operation, as in \"INQUIRY\", or its code in hexadecimal, "
      "as in \"12\", or with a service action \"9e/10\"");
}

std::uint8_t read_page(const Value &value) {
  const Bytes page = parse_bytes(value.text());
  if (page.size() != 1) value.fail("expected a page in hexadecimal, as in \"83\"");
  return page[0];
}

void read_choice(const Value &value, Fault &fault) {
  for (const char *key : {"operations", "pages", "requests"}) {
    if (fault.gone && value.has(key)) {
      value.at(key).fail("a path that is gone is so for all requests");
    }
  }
  if (value.has("operations")) {
    for (const Value &each : value.at("operations").list())
      fault.opcode.push_back(read_operation(each));
  }
  if (value.has("pages")) {
    for (const Value &each : value.at("pages").list())
      fault.pages.push_back(read_page(each));
    if (!fault.opcode.contain({opcode::inquiry})) value.at("pages").fail("only INQUIRY has them");
  }
  if (value.has("requests")) {
    fault.form = static_cast<Request::Form>(value.at("requests").choice({"sg_io", "legacy"}));
  }
}

Fault read_fault(const Value &value) {
  Fault fault{.times = -1};
  if (value.is_text()) {
    read_failure(value, fault);
    return fault;
  }
  value.require_object(
      {"fail", "delay_ms", "operations", "pages", "requests", "after", "heal_after"});
  if (value.has("delay_ms")) fault.delay = read_delay(value.at("delay_ms"));
  if (value.has("fail") || !value.has("delay_ms")) read_failure(value.at("fail"), fault);
  read_choice(value, fault);
  if (value.has("after")) fault.after = read_extent(value.at("after"), 0);
  if (value.has("heal_after")) fault.times = read_extent(value.at("heal_after"), 1);
  return fault;
}

}  // namespace

std::vector<Fault> read_faults(const Value &path) {
  std::vector<Fault> faults;
  if (path.has("delay_ms")) {
    faults.push_back({.times = -1, .delay = read_delay(path.at("delay_ms"))});
  }
  if (!path.has("fail")) return faults;
  const Value fail = path.at("fail");
  if (!fail.is_list()) {
    faults.push_back(read_fault(fail));
    return faults;
  }
  for (const Value &each : fail.list())
    faults.push_back(read_fault(each));
  return faults;
}

}  // namespace sim
