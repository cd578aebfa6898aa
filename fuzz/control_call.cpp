// A caller of the control node whose memory changes between the steps of its request.
#include "control/call.h"
#include "control/records.h"
#include "fuzz/input.h"

namespace {

constexpr unsigned scsi_legacy_request = 1;

/// What the header announces lies inside of the bytes.
template <class Pointer>
void check(const control::Command &command, const std::vector<std::byte> &bytes) {
  control::SgHeader<Pointer> header;
  fuzz::require(command.argument_at + sizeof header <= bytes.size());
  std::memcpy(&header, bytes.data() + command.argument_at, sizeof header);
  fuzz::require(command.cdb_at + header.cmd_len <= bytes.size());
  if (command.data_moves) fuzz::require(command.data_at + header.dxfer_len <= bytes.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const unsigned requests[] = {0x2285, control::indirect_request,
                               input.ConsumeIntegral<unsigned>()};
  control::Call call{.request = input.PickValueInArray(requests),
                     .argument = input.ConsumeIntegral<std::uint16_t>(),
                     .from_32_bit = input.ConsumeBool()};
  std::size_t length = 0;
  std::vector<std::uint8_t> memory;
  for (int steps = 0;; ++steps) {
    fuzz::require(steps <= 4);
    // Mostly what it was before, that is: the request goes on.
    if (steps == 0 || input.ConsumeIntegralInRange(0, 7) == 0)
      memory = input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, 400));
    std::vector<std::byte> bytes(length);
    for (std::size_t i = 0; i < std::min(length, memory.size()); ++i)
      bytes[i] = std::byte{memory[i]};
    call.in = bytes;
    const control::Step step = control::examine(call);
    if (const auto *command = std::get_if<control::Command>(&step)) {
      if (command->request != scsi_legacy_request) {
        call.from_32_bit ? check<control::Pointer32>(*command, bytes)
                         : check<control::Pointer64>(*command, bytes);
      }
      return 0;
    }
    const auto *needs = std::get_if<control::Needs>(&step);
    if (needs == nullptr) return 0;
    fuzz::require(needs->in.size() <= control::max_transfer);
    fuzz::require(needs->out.size() <= control::max_transfer);
    length = needs->in.size();
    call.out_size = needs->out.size();
  }
}
