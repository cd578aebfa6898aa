#include "tools/port_groups.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>

#include "base/bytes.h"
#include "base/designators.h"
#include "kzddl/ddlalua.h"
#include "kzddl/kzrtpg.h"
#include "kzddl/kzstpg.h"
#include "tools/error.h"
#include "tools/query.h"
#include "tools/vpd.h"

namespace tool {
namespace {

constexpr int reply_size = 255;

struct StateName {
  std::uint8_t code;
  std::uint8_t supported_bit;
  std::string_view words;
};

constexpr StateName states[] = {
    {0x0, 0x01, "active/optimized"}, {0x1, 0x02, "active/non-optimized"},    {0x2, 0x04, "standby"},
    {0x3, 0x08, "unavailable"},      {0x4, 0x10, "logical block dependent"}, {0xE, 0x40, "offline"},
    {0xF, 0x80, "transitioning"},
};

std::string status_words(std::uint8_t status) {
  static constexpr std::string_view words[] = {"none", "set by command", "implicit change"};
  return status < std::size(words) ? std::string(words[status])
                                   : fmt::format("reserved {:02X}h", status);
}

std::vector<std::string_view> supported_states(const PortGroup &group) {
  std::vector<std::string_view> names;
  for (const StateName &state : states) {
    if ((group.supported & state.supported_bit) != 0) names.push_back(state.words);
  }
  return names;
}

std::string supported_words(const PortGroup &group) {
  const std::vector<std::string_view> names = supported_states(group);
  return names.empty() ? "no state that it tells of" : fmt::format("{}", fmt::join(names, ", "));
}

Columns::Row row_of(const PortGroup &group) {
  return {std::to_string(group.number), access_state_words(group.state), yes_no(group.preferred),
          status_words(group.status),
          group.ports.empty() ? "none" : fmt::format("{}", fmt::join(group.ports, ", "))};
}

Json json_of(const PortGroup &group, const OwnPort &own) {
  return {{"group", group.number},
          {"own", own.group ? Json(own.group == group.number) : Json()},
          {"access_state", access_state_words(group.state)},
          {"access_state_code", group.state},
          {"preferred", group.preferred},
          {"status", status_words(group.status)},
          {"status_code", group.status},
          {"ports", group.ports},
          {"supported_states", supported_states(group)}};
}

/// What the mark in the table means, or why there is none.
std::string own_group_note(const OwnPort &own, bool is_marked) {
  if (!is_marked)
    return fmt::format("  The group of this node, {}, is not among them.\n", *own.group);
  const std::string port =
      own.relative_port ? fmt::format(", which leads to port {}", *own.relative_port) : "";
  return fmt::format("* the group of this node{}\n", port);
}

/// MAINTENANCE IN or OUT with the service action for target port groups.
std::array<std::uint8_t, 12> port_groups_cdb(std::uint8_t code, std::size_t length) {
  std::array<std::uint8_t, 12> cdb{code, 0x0A};
  kzddl::store_be32(&cdb[6], static_cast<std::uint32_t>(length));
  return cdb;
}

/// Both families hand a status over as it is, which may read like an error number: what it was is
/// left to the pass-through to tell.
int negated(int result) { return -std::abs(result); }

}  // namespace

PortGroups::PortGroups(ByteSpan reply) {
  constexpr std::size_t descriptor_size = 8;
  constexpr std::size_t port_size = 4;
  if (reply.size() >= header_size) announced += kzddl::load_be32(reply.data());
  present = static_cast<std::size_t>(std::min<std::uint64_t>(reply.size(), announced));
  ByteSpan rest = reply.first(present).subspan(std::min(present, header_size));
  while (rest.size() >= descriptor_size) {
    PortGroup &group = groups.emplace_back();
    group.preferred = (rest[0] & 0x80) != 0;
    group.state = rest[0] & 0x0F;
    group.supported = rest[1];
    group.number = kzddl::load_be16(&rest[2]);
    group.status = rest[5];
    std::size_t ports = rest[7];
    rest = rest.subspan(descriptor_size);
    for (; ports != 0 && rest.size() >= port_size; --ports) {
      group.ports.push_back(kzddl::load_be16(&rest[2]));
      rest = rest.subspan(port_size);
    }
    if (ports != 0) break;  // what is left is part of a port
  }
}

std::string access_state_words(std::uint8_t state) {
  const auto *name = find_code(states, state);
  return name ? std::string(name->words) : fmt::format("reserved {:X}h", state);
}

std::uint8_t access_state_from_words(std::string_view words) {
  for (std::uint8_t state = 0; state < 0x0F; ++state) {
    if (access_state_words(state) == words) return state;
  }
  return 0x0F;
}

std::string AccessPath::state_words() const {
  return state ? access_state_words(*state) : "access state not known";
}

std::string AccessPath::words() const {
  return fmt::format("port group {}, {}{}", group, state_words(), preferred ? ", preferred" : "");
}

std::vector<std::uint8_t> read_port_groups(Device &device) {
  std::vector<std::uint8_t> reply =
      ask(device, "groups", port_groups_cdb(opcode::maintenance_in, reply_size), reply_size,
          [&device](int *length, unsigned char **data) {
            *length = reply_size;
            return negated(do_rtpg(device.path(), data));
          });
  reply.resize(reply_size);
  return reply;
}

void set_port_groups(Device &device, const std::vector<RequestedState> &requested) {
  std::vector<std::uint8_t> list(PortGroups::header_size);
  for (const auto &[group, state] : requested) {
    list.insert(list.end(), {state, 0, static_cast<std::uint8_t>(group >> 8),
                             static_cast<std::uint8_t>(group)});
  }
  tell(device, "groups --set", port_groups_cdb(opcode::maintenance_out, list.size()), list, [&] {
    const auto length = static_cast<std::uint32_t>(list.size());
    return negated(do_stpg(device.path(), list.data(), length));
  });
}

std::string OwnPort::words() const {
  return fmt::format("{}{}{}", group ? fmt::format("port group {}", *group) : "",
                     group && relative_port ? ", " : "",
                     relative_port ? fmt::format("port {}", *relative_port) : "");
}

OwnPort own_port(ByteSpan page83) {
  OwnPort own;
  for (const Designator &designator : designators(page83)) {
    constexpr std::uint8_t target_port = 1;
    constexpr std::size_t number_size = 4;
    if (designator.association() != target_port || designator.bytes.size() < number_size) continue;
    // Numbers have 16 bits behind two reserved bytes.
    const std::uint32_t number = kzddl::load_be32(designator.bytes.data());
    if (number > 0xFFFF) continue;
    if (designator.type() == kzddl::Designator::port_group) own.group = number;
    if (designator.type() == kzddl::Designator::relative_port) own.relative_port = number;
  }
  return own;
}

bool has_port_groups(ByteSpan inquiry) {
  constexpr std::uint8_t tpgs = 0x30;
  return inquiry.size() > 5 && (inquiry[5] & tpgs) != 0;
}

std::optional<AccessPath> access_path(Device &device, const OwnPort &own) {
  if (!own.group) return std::nullopt;
  std::vector<std::uint8_t> reply;
  try {
    reply = read_port_groups(device);
  } catch (const Error &error) {
    if (error.is_unsupported()) return std::nullopt;
    throw;
  }
  const int group = static_cast<int>(*own.group);
  const int state = get_owner_state(reply.data(), group);
  if (state < 0) {
    throw Error("groups", device.name(),
                fmt::format("the group of this node, {}, is not among them", group));
  }
  return AccessPath{.group = *own.group,
                    .state = static_cast<std::uint8_t>(state),
                    .preferred = get_pref_state(reply.data(), group) != 0};
}

void show_port_groups(ViewBuilder &view, const PortGroups &reply, const OwnPort &own) {
  const Columns::Row heads = {"Group", "Access state", "Preferred", "Status", "Ports"};
  Columns columns;
  columns.measure(heads);
  for (const PortGroup &group : reply.groups)
    columns.measure(row_of(group));
  if (!reply.groups.empty()) view.append(columns.line(Prefix("  "), heads));
  bool found_own = false;
  Json list = Json::array();
  for (const PortGroup &group : reply.groups) {
    const bool is_own = own.group == group.number;
    found_own |= is_own;
    view.append(columns.line({is_own ? "* " : "  ", "  "}, row_of(group)));
    view.append(paragraph(Prefix(std::string(9, ' ')), "supports " + supported_words(group)));
    list.push_back(json_of(group, own));
  }
  if (own.group) view.append(own_group_note(own, found_own));
  view.value("own_group", json_or_null(own.group));
  view.value("own_port", json_or_null(own.relative_port));
  view.value("groups", std::move(list));
  view.size(reply.present, reply.announced);
}

View captured_port_groups_view(ByteSpan reply) {
  const PortGroups groups(reply);
  if (groups.present < PortGroups::header_size) {
    throw Error::usage(
        fmt::format("cut short: {} of {} bytes", groups.present, PortGroups::header_size));
  }
  ViewBuilder view(fmt::format("{}, {}", counted(groups.groups.size(), "target port group"),
                               counted(groups.present, "byte")));
  show_port_groups(view, groups, {});
  return view.build();
}

}  // namespace tool
