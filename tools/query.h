// Commands of the library's families, and why one of them failed.
#pragma once

#include <functional>
#include <vector>

#include "tools/command.h"

namespace tool {

/// Sends `cdb` by the pass-through, once more when a unit attention is in its way: that ends
/// with its report. Throws Error when the command cannot be handed to the device.
Completion send_past_attention(Device &device, ByteSpan cdb, const Data &data,
                               std::string_view operation);

/// A family's function: hands over a buffer from `malloc` and its length, or returns a result
/// other than 0.
using Family = std::function<int(int *length, unsigned char **data)>;

/// The data that `family` reads. A family tells little of a failure: `cdb`, the same command,
/// then goes by the pass-through, which tells the sense data and gets past a unit attention; it
/// does so at once where there is no family. Throws Error.
std::vector<std::uint8_t> ask(Device &device, std::string_view operation, ByteSpan cdb,
                              std::size_t size, const Family &family = {});

/// The same for data that go to the device, and change it. `family` returns a negative result
/// only where twice does as once.
void tell(Device &device, std::string_view operation, ByteSpan cdb, ByteSpan data,
          const std::function<int()> &family = {});

}  // namespace tool
