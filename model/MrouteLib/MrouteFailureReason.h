// Why the asynchronous programmer could not do what it was asked. Running out of a chip's resources
// is a state and no error, so it is told by this code. The type holds any 32-bit code: a layer
// above may define more. Printed as the number.
#pragma once

#include <ostream>

#include "Qor/Types.h"

namespace MrouteLib {

enum class MrouteFailureReason : Qor::U32 {
   none = 0,
   noMulticastId = 8,     // no free multicast id for the outgoing set
   noRouteHandle = 1024,  // the platform gave no handle for the route
   noVrfStatus = 4096,    // the route's VRF has no hardware status yet
};

inline std::ostream& operator<<(std::ostream& out, MrouteFailureReason reason) {
   return out << static_cast<Qor::U32>(reason);
}

}  // namespace MrouteLib
