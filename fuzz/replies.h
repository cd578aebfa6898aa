// What the library's decoders make of a device's replies: for each kind of reply all that read
// it, and what must hold of their results. The fuzz targets and the tests with hostile devices
// feed them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzz {

/// READ CAPACITY, and the printer of a capacity.
void capacity(const std::uint8_t *data, std::size_t size);
/// Copy operating parameters: RECEIVE COPY RESULTS, and the mode page.
void copy_limits(const std::uint8_t *data, std::size_t size);
/// The Device Identification page.
void identification(const std::uint8_t *data, std::size_t size);
/// INQUIRY, its printers, and the helpers that take texts out of its data.
void inquiry(const std::uint8_t *data, std::size_t size);
/// MODE SENSE.
void mode_pages(const std::uint8_t *data, std::size_t size);
/// REPORT TARGET PORT GROUPS, which the library reads as 255 bytes.
void port_groups(const std::uint8_t *data, std::size_t size);

}  // namespace fuzz
