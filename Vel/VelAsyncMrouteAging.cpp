// Activity polling of the asynchronous per-switch reactor. At the configured interval a review
// copies the hit times of the hardware into the hardware status, so that the routing layer can age
// routes. A review runs in bounded slices.
#include <cmath>
#include <utility>

#include "Vel/VelAsyncMrouteSm.h"
#include "Vel/VelLogMessages.h"
#include "Vel/VelRouteWalk.h"
#include "Vel/VelTrace.h"

namespace Vel::Mroute {

using Routing::Multicast::Fib::Hardware::RouteStatus;

namespace {

// The place where the next slice begins: the route to review next, or, if that route has gone, the
// route at its place or behind it. The process has one such position (VelAsyncMrouteSm.h).
RoutePosition& resumePosition() {
   static auto* const position = new RoutePosition;
   return *position;
}

// Returns the seconds truncated towards zero and then to eight bits; 0 for an infinite interval, at
// which no route is polled.
Qor::U8 lowByte(double seconds) {
   return std::isfinite(seconds) ? static_cast<Qor::U8>(static_cast<int>(std::fmod(seconds, 256)))
                                 : 0;
}

}  // namespace

// Returns the configured interval, in seconds, as far as the platform can keep it.
Qor::Seconds AsyncMrouteSwitchSm::pollingInterval() const {
   double const configured = mfibConfig()->activityPollingInterval();
   return mrouteHelper() ? mrouteHelper()->doGetAdjustedPollingInterval(configured) : configured;
}

void AsyncMrouteSwitchSm::handlePollingInterval() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::handlePollingInterval()");
   if (!mfibConfig()) return;
   auto const self = hold();
   double const configured = mfibConfig()->activityPollingInterval();
   Qor::Seconds const polling = pollingInterval();
   if (agingClock() && agingClock()->timeMin() >= Qor::maxFinite) {
      VEL_TRACE(2, "Setting polling interval to: " << polling);
      agingClock()->timeMinIs(Qor::now() + polling);
   }
   double const activity = mrouteHelper()
                                 ? mrouteHelper()->doGetAdjustedActivityPollInterval(configured)
                                 : configured;
   VEL_TRACE(2, "AsyncMrouteSwitchSm"
                      << "::"
                      << "handlePollingInterval"
                      << "( " << configured << ", " << polling << ", " << activity << " )");
   if (activity != configured) {
      Qor::log(mrouteActivityPollingIntervalNotSupported, {activity, configured});
   }
   if (!mfibHwStatus()) return;
   mfibHwStatus()->pollingIntervalIs(lowByte(activity));
}

void AsyncMrouteSwitchSm::doMaybeScheduleRouteAgingReview() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::doMaybeScheduleRouteAgingReview()");
   QOR_ASSERT(mfibHwStatus());
   if (!agingClock()) return;
   bool const armed = agingClock()->timeMin() <= Qor::maxFinite;
   if (mfibHwStatus()->routes() != 0) {
      if (armed || !mfibConfig()) return;
      auto const self = hold();  // the hook may release the last reference
      Qor::Seconds const interval = pollingInterval();
      VEL_TRACE(2, "Enabling aging review in: " << interval << " s");
      agingClock_.arm(Qor::now() + interval);
   } else if (armed) {
      VEL_TRACE(2, "Disabling aging review");
      agingClock()->timeMinIs(Qor::never);
   }
}

void AsyncMrouteSwitchSm::doRouteAgingReview() {
   VEL_TRACE(2, "AsyncMrouteSwitchSm::doRouteAgingReview()");
   if (!mfibHwStatus() || mfibHwStatus()->routes() == 0) {
      VEL_TRACE(2, "No routes present in mfibHwStatus. Nothing to review");
      if (mfibHwStatus()) {
         doMaybeScheduleRouteAgingReview();
      } else {
         agingClock_.arm(Qor::never);
      }
      return;
   }
   auto const self = hold();
   RoutePosition& position = resumePosition();
   // The next review starts with the first route unless this slice ends at the quota.
   RoutePosition const from = std::exchange(position, {});
   Qor::U32 reviewed = 0;
   VrfId vrfId;
   auto const enterVrf = [&, function = __func__](L3::VrfName const& vrfName) {
      auto const& hwRouteStatus = mrouteSwitch()->routingHwRouteStatus();
      auto const hwVrf = hwRouteStatus ? hwRouteStatus->vrfStatus(vrfName) : nullptr;
      if (hwVrf) {
         vrfId = hwVrf->vrfId();
      } else {
         VEL_TRACE_IN(function, 2,
                      "AsyncMrouteSwitch"
                            << "::" << function << "()"
                            << " vrfStatus for vrf: " << vrfName << " is not present");
      }
      return hwVrf != nullptr;
   };
   auto const visit = [&](RouteStatus& route, RoutePosition const& at) {
      if (reviewed >= agingQuota) {
         position = at;
         return false;
      }
      reviewed += reviewRoute(route, vrfId);
      return true;
   };
   if (!walkRoutes(*mfibHwStatus(), from, enterVrf, visit)) {
      agingClock_.arm(Qor::now() + agingGap);
      return;
   }
   VEL_TRACE(2, "Review completed");
   agingClock_.arm(mfibConfig() ? Qor::now() + pollingInterval() : Qor::never);
}

// Returns the number of reviewed entries: the route and each of its fastdrops.
Qor::U32 AsyncMrouteSwitchSm::reviewRoute(RouteStatus& route, VrfId vrfId) {
   IpGenRouteKey const& key = route.key();
   VEL_TRACE(2, "Reviewing " << key.pretty());
   Bridging::VlanIdOrNone const vlan = vlanOf(route.acceptingIntfId());
   if (vlan.isNone() && !route.acceptingIntfId().isNull()) {
      VEL_TRACE(2, "No accepting vlan for the route - still check for fastdrops");
   } else {
      Qor::Seconds const t = lastRoutePollTime(key, vlan, vrfId);
      if (t > route.lastPollTime()) {
         VEL_TRACE(2, "Updating activity bits for route: " << key);
         route.lastPollTimeIs(t);
      }
   }
   Qor::U32 reviewed = 1;
   auto const& fastdrops = route.fastdropLastPollTime();
   for (auto entry = fastdrops.begin(); entry != fastdrops.end(); ++reviewed) {
      Qor::Name const intfName = entry->first;
      VEL_TRACE(2, "Reviewing fastdrop " << intfName);
      Bridging::VlanIdOrNone const fastdropVlan = vlanOf(Lnet::IntfId(intfName));
      Qor::Seconds const t =
            fastdropVlan.isNone() ? 0.0 : lastRoutePollTime(key, fastdropVlan, vrfId);
      // The hook may have caused the removal of the entry; the store must not add it again.
      auto const* const reviewedEntry = fastdrops.find(intfName);
      if (reviewedEntry && t > reviewedEntry->second) {
         VEL_TRACE(2, "Updating activity bits for fastdrop route: " << key
                                                                    << ", vlan: " << fastdropVlan);
         route.fastdropLastPollTimeIs(intfName, t);
      }
      entry = fastdrops.upperBound(intfName);
   }
   return reviewed;
}

Qor::Seconds AsyncMrouteSwitchSm::lastRoutePollTime(IpGenRouteKey const& key,
                                                    Bridging::VlanIdOrNone vlan, VrfId vrfId) {
   VEL_TRACE(2, "AsyncMrouteSwitchSm"
                      << "::"
                      << "lastRoutePollTime"
                      << "()");
   // Catch-all routes of both address families are recorded under one key.
   bool const catchAll = key.kind() == IpGenRouteKey::kindCatchAll;
   static constexpr IpGenRouteKey catchAllKey = Routing::Multicast::Fib::canonicalCatchAllKey();
   InUseRouteHandleKey const recorded(catchAll ? catchAllKey : key, vlan, vrfId);
   MrouteLib::RouteHandle const handle = mrouteSwitch()->inUseRouteHandle(recorded);
   if (handle.isNull()) {
      VEL_TRACE(2, "RouteHandle not found for the route: " << key << ", vlan: " << vlan);
      return 0.0;
   }
   if (!mrouteHelper()) return 0.0;
   Qor::Seconds const t = mrouteHelper()->routeLastAccessedTime(handle);
   VEL_TRACE(2, "last accessed time for routeHandle " << handle << ' ' << t);
   return t;
}

}  // namespace Vel::Mroute
