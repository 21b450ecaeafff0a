// Activity polling of the synchronous per-switch reactor. At the configured interval the reactor
// reads the hit bits of all routes, one time-boxed slice at a time. It sets the poll time of each
// hit route in the hardware status, so that the routing layer can age the idle routes.
#include <algorithm>
#include <utility>

#include "Vel/VelRouteWalk.h"
#include "Vel/VelSyncMrouteSm.h"
#include "Vel/VelTrace.h"

namespace Vel {

using Bridging::VlanIdOrNone;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::Hardware::RouteStatus;

namespace {

// The place behind the last route reviewed, and the reactor that reviewed it. The next slice begins
// there, also if that was the last route of all. One position for the process; see the header.
struct ReviewPosition {
   RoutePosition next;
   MrouteSwitchSm const* reactor = nullptr;  // null: no review is under way
};

ReviewPosition& reviewPosition() {
   static auto* const position = new ReviewPosition;
   return *position;
}

// The first route at the position or behind it; the invalid key if there is none.
IpGenRouteKey nextRoute(Routing::Multicast::Fib::Hardware::Status const& status,
                        RoutePosition const& position) {
   IpGenRouteKey next;
   walkRoutes(
         status, position, [](L3::VrfName const&) { return true; },
         [&](RouteStatus const& route, RoutePosition const&) {
            next = route.key();
            return false;
         });
   return next;
}

bool isArmed(Qor::Ptr<Qor::Clock const> const& clock) {
   return clock && clock->timeMin() <= Qor::maxFinite;
}

}  // namespace

// Clears the position if this reactor set it, so that the next review starts at the first route.
void MrouteSwitchSm::reviewStopped() const {
   if (reviewPosition().reactor == this) reviewPosition() = {};
}

void MrouteSwitchSm::maybeScheduleAgingReview() {
   if (!mrouteSwitch()) return;
   Qor::U32 const mroutes = mrouteSwitch()->route().size();
   VEL_TRACE(7, "maybeScheduleAgingReview"
                      << ", Mroutes: " << mroutes);
   if (mroutes != 0) {
      if (isArmed(agingClock()) || !mfibConfig()) return;
      unsigned const interval = mfibConfig()->activityPollingInterval();
      VEL_TRACE(5, "First mroute, enabling aging review in " << interval << 's');
      agingClock_.arm(Qor::now() + interval);
   } else if (!isArmed(agingClock())) {
      VEL_TRACE(6, "Kick review to program the unprogrammed multicast routes if any");
      mrouteSwitch()->mrouteReviewKickIs(mrouteSwitch()->mrouteReviewKick() + 1);
   } else {
      VEL_TRACE(5, "Last mroute, disabling aging review");
      agingClock_.arm(Qor::never);
      reviewStopped();
      if (mfibHwStatus() && !mfibHwStatus()->hwRouting() && l3Status()) {
         l3Status()->waitForRoutingDisabledRefCntInc(1);
      }
   }
}

void MrouteSwitchSm::handlePollingInterval() {
   if (!mfibConfig()) return;
   Qor::U8 const interval = mfibConfig()->activityPollingInterval();
   VEL_TRACE(6, "handlePollingInterval"
                      << ", polling interval: " << unsigned{interval} << 's');
   if (!initialized()) return;
   if (isArmed(agingClock())) agingClock_.arm(Qor::now());
   if (mfibHwStatus()) mfibHwStatus()->pollingIntervalIs(interval);
}

void MrouteSwitchSm::doRouteAgingReview() {
   VEL_TRACE(7, "doRouteAgingReview");
   if (!initialized()) return;
   if (!mfibHwStatus() || !mfibConfig() || !mrouteSwitch()) {
      agingClock_.arm(Qor::never);
      reviewStopped();
      return;
   }
   auto const self = hold();
   Qor::Ptr<MrouteSwitch> const chip = mrouteSwitch();
   // The clock that fired still reads as armed. A hook or a listener can disarm it, as the deletion
   // of the last route does, and thereby stops the review.
   bool const byClock = isArmed(agingClock());
   auto const isStopped = [&] { return byClock && !isArmed(agingClock()); };
   ReviewPosition const last = std::exchange(reviewPosition(), {});
   bool const goesOn = last.reactor && mfibHwStatus()->vrfStatus(last.next.vrfName);
   RoutePosition const from = goesOn ? last.next : RoutePosition();
   if (last.reactor) VEL_TRACE(6, "Current routeIter: " << nextRoute(*mfibHwStatus(), from));
   if (!goesOn) {
      VEL_TRACE(6, "VrfItr not found - restarting review and refreshing the cache");
      if (mrouteHelper() && mrouteHelper()->mrouteHitBitCacheRefresh(chip->switchId()) ==
                                  VelHelper::MrouteSmHelper::hitBitCacheBusy) {
         // The clock stays as it fired, so it fires again after retryGap and the hook is asked
         // again.
         VEL_TRACE(6, "cmdInProgress_ ");
         return;
      }
      if (isStopped()) return;
   }
   Qor::Seconds const deadline = Qor::now() + agingReviewQuota();
   Qor::U32 reviewed = 0;
   Qor::U16 vrfId = 0;
   auto const enterVrf = [&, function = __func__](L3::VrfName const& vrfName) {
      VEL_TRACE_IN(function, 5, "Iterating VRF " << vrfName);
      Qor::U32 const id = l3Status() ? l3Status()->vrfNameToVrfId(vrfName.name()).value() : 0;
      QOR_ASSERT(id <= 0xFFFF);
      vrfId = static_cast<Qor::U16>(id);
      return true;
   };
   auto const visit = [&, function = __func__](RouteStatus& route, RoutePosition const& at) {
      reviewRoute(route, vrfId);
      ++reviewed;
      if (Qor::now() <= deadline) return true;
      VEL_TRACE_IN(function, 6,
                   "Route aging review quota reached (reviewed " << reviewed << " routes)");
      reviewPosition() = {{.vrfName = at.vrfName, .place = at.place + 1}, this};
      return false;
   };
   bool const complete = walkRoutes(*mfibHwStatus(), from, enterVrf, visit);
   if (complete) VEL_TRACE(6, "Review completed");
   if (complete && mrouteHelper()) {
      mrouteHelper()->doCommitMrouteBatch();
      mrouteHelper()->mrouteHitBitCacheClear(chip->switchId());
   }
   if (!mfibConfig() || !mrouteSwitch() || isStopped()) {
      agingClock_.arm(Qor::never);
      reviewStopped();
   } else if (complete) {
      agingClock_.arm(Qor::now() + mfibConfig()->activityPollingInterval());
   } else {
      agingClock_.arm(Qor::now() + std::max(agingReviewInterval(), Qor::Clock::retryGap));
   }
   if (!complete) return;
   VEL_TRACE(6, "Kick off a new Mroute review in the MrouteProgrammer");
   chip->mrouteReviewKickIs(chip->mrouteReviewKick() + 1);
}

// The hook is called also for a route that the switch does not hold, since the chip may hold it.
bool MrouteSwitchSm::isHit(IpGenRouteKey const& key, VlanIdOrNone vlan, Qor::U16 vrfId) const {
   return mrouteHelper() && mrouteSwitch() &&
          mrouteHelper()->mrouteHitBit(mrouteSwitch()->switchId(), vrfId, key, vlan, false);
}

void MrouteSwitchSm::reviewRoute(RouteStatus& route, Qor::U16 vrfId) {
   IpGenRouteKey const& key = route.key();
   VEL_TRACE(7, "Aging review: polling state for route " << key);
   VlanIdOrNone const vlan = vlanOf(route.acceptingIntfId());
   if (vlan.isNone()) {
      VEL_TRACE(7, "No accepting vlan for the route. Check fastdrops");
   } else {
      auto const chip = mrouteSwitch();
      auto const mroute =
            chip ? chip->route(chip->routeKeyToHandle(RouteKeyVlanId(key, vlan))) : nullptr;
      bool const forced = mroute && mroute->noAge();
      if (forced) VEL_TRACE(5, " Forcing hit for " << key);
      if (forced || isHit(key, vlan, vrfId)) {
         VEL_TRACE(5, "Updating activity bits for route " << key);
         route.lastPollTimeIs(Qor::now());
      }
   }
   auto const& fastdrops = route.fastdropLastPollTime();
   for (auto entry = fastdrops.begin(); entry != fastdrops.end();) {
      Qor::Name const intfName = entry->first;
      VEL_TRACE(7, "Reviewing fastdrop " << intfName);
      VlanIdOrNone const fastdropVlan = vlanOf(Lnet::IntfId(intfName));
      // The hook may have removed the fastdrop entry; writing its time would create it again.
      if (!fastdropVlan.isNone() && isHit(key, fastdropVlan, vrfId) && fastdrops.find(intfName)) {
         VEL_TRACE(5, "Updating activity bits for fastdrop route" << key << " on vlan "
                                                                  << fastdropVlan);
         route.fastdropLastPollTimeIs(intfName, Qor::now());
      }
      entry = fastdrops.upperBound(intfName);
   }
}

}  // namespace Vel
