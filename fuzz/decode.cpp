// Everything that the tool decodes, as text and as JSON.
#include "capture/capture.h"
#include "fuzz/require.h"
#include "tools/capacity.h"
#include "tools/copy_limits.h"
#include "tools/error.h"
#include "tools/inquiry_view.h"
#include "tools/mode_view.h"
#include "tools/port_groups.h"

namespace {

using tool::ByteSpan;

tool::View modes(ByteSpan reply) { return tool::mode_view("", reply, tool::mode_form_of(reply)); }
tool::View modes_10(ByteSpan reply) { return tool::mode_view("", reply, tool::ModeForm::ten); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const auto reply = fuzz::block(data, size, size);
  for (const auto decode :
       {tool::standard_inquiry_view, tool::vpd_view, tool::captured_port_groups_view,
        tool::captured_capacity_view, modes, modes_10, tool::captured_copy_limits_view}) {
    try {
      const tool::View view = decode({reply.data(), reply.size()});
      for (const char c : view.text)  // device texts are escaped
        fuzz::require(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
      view.json.dump();  // throws for what is no UTF-8
    } catch (const tool::Error &) {
    }
  }
  try {
    capture::parse_hex({reinterpret_cast<const char *>(data), size});
  } catch (const capture::Error &) {
  }
  return 0;
}
