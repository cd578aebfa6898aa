// Fits a geometry to the 16-bit fields of a disk label. All arithmetic is unsigned.
#include "kzddl/solgeom.h"

#include <cerrno>
#include <cstdint>

namespace {

constexpr std::uint32_t label_max = 65535;
constexpr std::uint32_t heads_max = 255;

}  // namespace

std::int32_t vol_sol_lbl_adj_geom(std::uint32_t *cyl, std::uint32_t *nsect, std::uint32_t *nhead,
                                  std::uint64_t capacity) {
  if (*nsect > label_max || *nhead > heads_max) return EINVAL;
  if (*cyl <= label_max) return 0;

  std::uint32_t &smaller = *nsect < *nhead ? *nsect : *nhead;
  std::uint32_t &other = *nsect < *nhead ? *nhead : *nsect;
  while (*cyl % 2 == 0) {
    *cyl /= 2;
    smaller *= 2;
    if (smaller > label_max) return EINVAL;
    if (*cyl <= label_max) return 0;
  }

  // Odd and still too large: as many cylinders as there can be, and the rest to the others.
  *cyl = label_max;
  const std::uint32_t divisor = smaller * label_max;
  if (divisor == 0) return EINVAL;
  other = static_cast<std::uint32_t>(capacity / divisor);
  if (other <= label_max) return 0;

  other = label_max;
  const std::uint64_t rest = capacity / (std::uint64_t{label_max} * label_max);
  smaller = static_cast<std::uint32_t>(rest);
  return rest > label_max ? EINVAL : 0;
}
