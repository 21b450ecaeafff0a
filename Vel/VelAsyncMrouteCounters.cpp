// Route counters on the asynchronous path are the platform's business: the two global settings are
// handed on, from construction on, and nothing else is done here.
#include "Vel/VelAsyncMrouteSmReactors.h"

namespace Vel::Mroute {

namespace {

constexpr char velTraceSource[] = "VelAsyncMrouteSm";

}  // namespace

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
