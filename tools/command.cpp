#include "tools/command.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "base/descriptor.h"
#include "base/driver.h"
#include "kzddl/kzscsi.h"
#include "kzddl/kzscsilib.h"
#include "tools/error.h"

namespace tool {
namespace {

constexpr std::int16_t status_not_written = -1;

/// Why the control node cannot be opened; empty when it can be.
std::string no_control_node() {
  kzddl::Descriptor control;
  if (control.open(kzddl::control_node, O_RDWR)) return {};
  if (errno == ENOENT) {
    return fmt::format(
        "there is no control node {} (kzcontrold makes one, --route direct does "
        "without)",
        kzddl::control_node);
  }
  return fmt::format("cannot open the control node {}: {}", kzddl::control_node,
                     std::strerror(errno));
}

std::string error_words(int error) {
  if (error == ECONNABORTED) {
    return "the control service ended; the command may or may not have been carried out";
  }
  return error == ENOTTY ? "not a SCSI device" : std::strerror(error);
}

/// Words for a request that never got to the device.
[[noreturn]] void throw_not_sent(const Device &device, std::string_view operation, int error) {
  throw Error(operation, device.name(), error_words(error));
}

/// IA-64 reports in the result alone: an errno, or the negated SCSI status.
Completion legacy_completion(int result, const Data &data) {
  Completion completion{.status = static_cast<std::uint8_t>(-result),
                        .combined = static_cast<unsigned>(-result)};
  if (completion.ok()) completion.transferred = data.bytes.size();
  return completion;
}

std::size_t transferred(const uscsi_cmd &request) {
  const std::int64_t length = request.uscsi_buflen;
  return static_cast<std::size_t>(
      std::clamp<std::int64_t>(length - request.uscsi_resid, 0, length));
}

}  // namespace

bool is_direct_route() { return std::strcmp(scsi_version, "32") == 0; }

std::string Completion::reason() const {
  if (status == scsi_status::good) {
    return sense ? sense_words(*sense) : host_status_words(combined);
  }
  std::string words = scsi_status_words(status);
  if (sense) words += ", " + sense_words(*sense);
  return words;
}

Completion send_command(Device &device, ByteSpan cdb, const Data &data,
                        std::string_view operation) {
  std::array<std::uint8_t, 252> sense{};
  uscsi_cmd request{};
  request.uscsi_flags = data.direction == Data::Direction::from_device ? USCSI_READ : 0;
  request.uscsi_status = status_not_written;
  request.uscsi_cdb = const_cast<std::uint8_t *>(cdb.data());  // only read
  request.uscsi_cdblen = static_cast<std::uint8_t>(cdb.size());
  request.uscsi_bufaddr = data.bytes.data();
  request.uscsi_buflen = static_cast<std::uint32_t>(data.bytes.size());
  request.uscsi_rqbuf = sense.data();
  request.uscsi_rqlen = static_cast<std::uint8_t>(sense.size());

  errno = 0;
  const int result = do_scsi(device.path(), &request);
  const int error = errno;
  if (request.uscsi_status == status_not_written) {
    if (result > 0) throw_not_sent(device, operation, result);
    return legacy_completion(result, data);
  }
  if (result < 0) throw_not_sent(device, operation, error);
  // A medium error that the host adapter found has the same number, but is no failed call.
  if (result == ENODEV && error != 0 && !is_direct_route() &&
      request.uscsi_status == scsi_status::good) {
    require_control_node(device, operation);
  }
  const std::size_t sense_size = std::min<std::size_t>(request.uscsi_rqresid, sense.size());
  return {.status = static_cast<std::uint8_t>(request.uscsi_status),
          .combined = static_cast<unsigned>(result),
          .transferred = transferred(request),
          .sense = parse_sense(ByteSpan(sense).first(sense_size))};
}

void require_control_node(const Device &device, std::string_view operation) {
  if (is_direct_route()) return;
  const std::string reason = no_control_node();
  if (!reason.empty()) throw Error(operation, device.name(), reason);
}

void require_control_node(std::string_view operation) {
  if (is_direct_route()) return;
  const std::string reason = no_control_node();
  if (!reason.empty()) throw Error::failure(fmt::format("{}: {}", operation, reason));
}

void require_told_outcomes(const Device &device, std::string_view operation) {
  if (ddl_is_arch_ia64() == 0) return;
  throw Error(operation, device.name(),
              "on IA-64 a request that is lost looks like one that succeeds");
}

std::string result_words(int result) {
  if (result > 0) return error_words(result);
  if (result == -ENODEV && !is_direct_route()) {
    if (std::string reason = no_control_node(); !reason.empty()) return reason;
  }
  if (ddl_is_arch_ia64() == 0) return combined_status_words(static_cast<unsigned>(-result));
  return result == -1 ? "the device announces no data"
                      : scsi_status_words(static_cast<std::uint8_t>(-result));
}

}  // namespace tool
