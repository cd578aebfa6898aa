// READ CAPACITY: how large a disk is, asked of it or out of a captured reply.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/device.h"
#include "tools/text.h"
#include "tools/view.h"

namespace tool {

struct Capacity {
  std::uint64_t last_lba = 0;
  std::uint32_t block_size = 0;

  // Nothing when 64 bits cannot count them.
  std::optional<std::uint64_t> blocks() const;
  std::optional<std::uint64_t> bytes() const;
  /// "4.40 TB".
  std::string words() const;
};

/// "1.07 GB": three digits, in powers of 1000.
std::string size_words(double bytes);

/// The reply that holds the capacity: READ CAPACITY (10)'s, or (16)'s where 32 bits do not do.
/// Throws Error.
std::vector<std::uint8_t> read_capacity_reply(Device &device);

Capacity read_capacity(Device &device);

/// Either command's reply: 8 bytes are READ CAPACITY (10)'s. Throws Error (of usage) when it is
/// cut so short that it tells no capacity.
View capacity_view(const std::string &title, ByteSpan reply);

/// The same for a captured reply, named by its command.
View captured_capacity_view(ByteSpan reply);

}  // namespace tool
