// A platform that answers at once: calls on instant_node and on the multipath driver's control
// node enter the kernel, and come back with nothing done.
#pragma once

namespace bench {

inline constexpr char instant_node[] = "/instant/disk";

}  // namespace bench
