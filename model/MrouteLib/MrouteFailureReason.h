// The reason why an operation of the asynchronous programmer failed. A chip without room is a state
// and not an error, so the programmer sets this code and raises no exception. The type holds any
// 32-bit code, so that a higher layer can define further codes. A reason is printed as its number.
#pragma once

#include <ostream>

#include "Qor/Types.h"

namespace MrouteLib {

enum class MrouteFailureReason : Qor::U32 {
   none = 0,
   noMulticastId = 8,     // no free multicast id for the outgoing set
   noRouteHandle = 1024,  // the platform returned no handle for the route
   noVrfStatus = 4096,    // the route's VRF has no hardware status yet
};

inline std::ostream& operator<<(std::ostream& out, MrouteFailureReason reason) {
   return out << static_cast<Qor::U32>(reason);
}

}  // namespace MrouteLib
