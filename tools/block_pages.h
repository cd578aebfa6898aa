// The VPD pages of direct access block devices: limits, characteristics, provisioning.
#pragma once

#include "tools/view.h"
#include "tools/vpd.h"

namespace tool {

// Each adds the fields that the page is long enough for.
void add_block_limits(ViewBuilder &view, const VpdPage &page);
void add_block_characteristics(ViewBuilder &view, const VpdPage &page);
void add_provisioning(ViewBuilder &view, const VpdPage &page);

}  // namespace tool
