// What the interposed functions share.
#pragma once

#include <string>

namespace sim {

/// A name that is given relative to a simulated directory, from the root on; any other as it is.
std::string name_at(int directory, const char *path);

}  // namespace sim
