// Route counters on the asynchronous path belong to the platform. The reactor passes the two global
// settings to it, from construction on, and does nothing else.
#include "Vel/VelAsyncMrouteSmReactors.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

void AsyncMrouteSwitchSm::handleMulticastCounterMode() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm"
                      << "::"
                      << "handleMulticastCounterMode"
                      << "()");
   auto const self = hold();
   if (mrouteHelper() && mfibConfig()) {
      mrouteHelper()->handleMrouteCounterMode(mfibConfig()->counterMode());
   }
}

void AsyncMrouteSwitchSm::handleWildcardCounter() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm"
                      << "::"
                      << "handleWildcardCounter"
                      << "()");
   auto const self = hold();
   if (mrouteHelper() && mfibConfig()) {
      mrouteHelper()->handleWildcardCounter(mfibConfig()->allCounter());
   }
}

void AsyncMrouteSwitchSm::QorMfibConfigVrf::handleCounterRoute(IpGenRouteKey const&) {
   VEL_TRACE(2, "AsyncMrouteSwitchSm"
                      << "::"
                      << "handleCounterRoute"
                      << "()");
}

}  // namespace Vel::Mroute
