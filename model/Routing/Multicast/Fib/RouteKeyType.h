// The kinds of routes an outgoing set serves; a platform decides by it which sets live in fixed
// groups and which routes need an ingress entry. The numbers are fixed: type 1 sets are never used
// in hardware and are freed without delay, so no set of an ordinary route may carry it.
#pragma once

#include <cstdint>

#include "Qor/EnumText.h"

namespace Routing::Multicast::Fib {

enum class RouteKeyType : std::uint8_t {
   invalid = 0,
   softwareOnly = 1,  // the set is not used in hardware
   sourceGroup = 2,   // (S,G)
   starGroup = 3,     // (*,G)
   groupRange = 4,
   catchAll = 5,
   bridged = 6,
};

inline constexpr RouteKeyType lastRouteKeyType = RouteKeyType::bridged;

inline std::ostream& operator<<(std::ostream& out, RouteKeyType type) {
   static constexpr char const* names[] = {"invalid",    "softwareOnly", "sourceGroup", "starGroup",
                                           "groupRange", "catchAll",     "bridged"};
   return Qor::printEnum(out, type, names);
}

}  // namespace Routing::Multicast::Fib
