#include "tools/mode_sense.h"

#include "kzddl/kzmodesense.h"
#include "tools/error.h"
#include "tools/query.h"

namespace tool {
namespace {

constexpr std::uint8_t allocation_length = 255;

/// The family's function for the question; none for a subpage on the direct route, which only
/// the control node carries.
Family family_for(Device &device, const ModeQuestion &question) {
  const int control = static_cast<int>(question.values);
  if (question.subpage == 0) {
    return [&device, control, question](int *length, unsigned char **data) {
      return do_mode_sense_raw(device.path(), 0, control, question.page, length, data);
    };
  }
  if (is_direct_route()) return {};
  return [&device, control, question](int *length, unsigned char **data) {
    const auto number = device.path()->dev;
    return do_mode_sense_raw1(static_cast<unsigned>(number), static_cast<unsigned>(number >> 32), 0,
                              control, question.page, question.subpage, length, data);
  };
}

}  // namespace

std::array<std::uint8_t, 6> mode_sense_cdb(const ModeQuestion &question) {
  const auto control = static_cast<unsigned>(question.values);
  return {opcode::mode_sense_6, 0, static_cast<std::uint8_t>(control << 6 | question.page),
          question.subpage, allocation_length};
}

std::vector<std::uint8_t> read_modes(Device &device, const ModeQuestion &question,
                                     std::string_view operation) {
  return ask(device, operation, mode_sense_cdb(question), allocation_length,
             family_for(device, question));
}

bool is_reserved_elsewhere(Device &device) {
  constexpr std::string_view operation = "reserved";
  require_told_outcomes(device, operation);
  // do_diskio_chk_rsvn asks for page 0, which many targets do not have; all pages, every target.
  std::array<std::uint8_t, allocation_length> reply{};
  const Completion completion =
      send_past_attention(device, mode_sense_cdb({}),
                          {.direction = Data::Direction::from_device, .bytes = reply}, operation);
  if (completion.status == scsi_status::reservation_conflict) return true;
  if (!completion.ok())
    throw Error(operation, device.name(), completion.reason(), completion.sense);
  return false;
}

}  // namespace tool
