// The kind of the routes that an oif set serves. A platform decides by the kind which sets have
// fixed groups and which routes need an ingress entry. The numbers are fixed: a set of type 1 is
// never used in hardware and is freed without delay, so no set of an ordinary route may have that
// type.
#pragma once

#include <cstdint>

#include "Qor/EnumText.h"

namespace Routing::Multicast::Fib {

enum class RouteKeyType : std::uint8_t {
   invalid = 0,
   softwareOnly = 1,  // the set is not used in hardware
   routed = 2,        // one group: (S,G) and (*,G) routes, which share sets
   groupRange = 3,
   catchAll = 4,
   bridged = 5,
};

inline constexpr RouteKeyType lastRouteKeyType = RouteKeyType::bridged;

inline std::ostream& operator<<(std::ostream& out, RouteKeyType type) {
   static constexpr char const* names[] = {"invalid",    "softwareOnly", "routed",
                                           "groupRange", "catchAll",     "bridged"};
   return Qor::printEnum(out, type, names);
}

}  // namespace Routing::Multicast::Fib
