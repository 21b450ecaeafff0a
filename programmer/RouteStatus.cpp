#include "programmer/RouteStatus.h"

namespace VelMroute {

std::ostream& operator<<(std::ostream& os, RouteState state) {
   static constexpr char const* names[] = {"queued",       "programming",  "inHardware",
                                           "waitingGroup", "waitingEntry", "waitingBoundary",
                                           "waitingVrf",   "waitingVlan",  "failed"};
   return os << names[static_cast<unsigned>(state)];
}

}  // namespace VelMroute
