// A device's copy operating parameters: its answer to RECEIVE COPY RESULTS, and its mode page.
#include "fuzz/input.h"
#include "kzddl/kzecopy_oper.h"

namespace {

void read(int (*convert)(const unsigned char *, int, rcr_oper_parm **),
          const std::vector<std::uint8_t> &reply) {
  rcr_oper_parm *record = nullptr;
  if (convert(reply.data(), static_cast<int>(reply.size()), &record) == 0) {
    fuzz::require(record != nullptr);
    do_display_rcv_copy_results_operating_parameters("/dev/sda", sizeof *record, record);
  }
  std::free(record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size > 4096) return 0;
  const auto reply = fuzz::block(data, size, size);
  read(do_convert_to_rcr_oper_parm, reply);
  read(do_convert_mode_sense_oper_parm_to_rcr_oper_parm, reply);
  return 0;
}
