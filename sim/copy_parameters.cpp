#include "sim/copy_parameters.h"

#include <algorithm>
#include <array>

#include "base/bytes.h"

namespace sim {
namespace {

constexpr std::uint16_t max_target_descriptors = 2;
constexpr std::uint16_t max_segment_descriptors = 1;
constexpr std::uint32_t max_descriptor_list = 1024;     // bytes
constexpr std::uint32_t max_segment_length = 1U << 28;  // bytes
constexpr std::uint8_t max_concurrent_copies = 1;
constexpr std::uint8_t granularity = 9;  // a power of two: 512 bytes
/// Block device to block device, and the Identification Descriptor target descriptor.
constexpr std::array<std::uint8_t, 2> descriptor_types{0x02, 0xE4};

}  // namespace

Bytes copy_operating_parameters() {
  constexpr std::size_t types_at = 44;
  Bytes data(types_at + descriptor_types.size());
  kzddl::store_be32(&data[0], static_cast<std::uint32_t>(data.size() - 4));
  data[4] = 1;  // list identifiers are supported
  kzddl::store_be16(&data[8], max_target_descriptors);
  kzddl::store_be16(&data[10], max_segment_descriptors);
  kzddl::store_be32(&data[12], max_descriptor_list);
  kzddl::store_be32(&data[16], max_segment_length);
  kzddl::store_be16(&data[34], max_concurrent_copies);
  data[36] = max_concurrent_copies;
  std::fill_n(&data[37], 3, granularity);
  data[43] = static_cast<std::uint8_t>(descriptor_types.size());
  std::copy(descriptor_types.begin(), descriptor_types.end(), &data[types_at]);
  return data;
}

Bytes copy_mode_page() {
  constexpr std::size_t types_at = 36;
  Bytes page(types_at + descriptor_types.size());
  page[0] = 0x0E;
  page[1] = static_cast<std::uint8_t>(page.size() - 2);
  page[3] = max_concurrent_copies;
  kzddl::store_be16(&page[4], max_target_descriptors);
  kzddl::store_be16(&page[6], max_segment_descriptors);
  kzddl::store_be32(&page[8], max_descriptor_list);
  kzddl::store_be32(&page[12], max_segment_length);
  std::fill_n(&page[28], 3, granularity);
  page[35] = static_cast<std::uint8_t>(descriptor_types.size());
  std::copy(descriptor_types.begin(), descriptor_types.end(), &page[types_at]);
  return page;
}

}  // namespace sim
