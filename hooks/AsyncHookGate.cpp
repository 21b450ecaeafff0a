#include "hooks/AsyncHookGate.h"

#include <utility>

#include "Qor/Exception.h"

namespace VelMroute {

using Hux::XactPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U32;

namespace {

Qor::Ptr<AsyncHookGate::Hooks> const& checked(Qor::Ptr<AsyncHookGate::Hooks> const& hooks) {
   if (!hooks) Qor::throwRange("VelMroute::AsyncHookGate::hooks null not allowed");
   return hooks;
}

}  // namespace

AsyncHookGate::AsyncHookGate(Qor::Ptr<Hooks> hooks, std::optional<HookChecks::Options> checks)
      : AsyncMrouteHelper(checked(hooks)->name(), checked(hooks)->activeCounterKeyTable(),
                          checked(hooks)->mrouteCounterKeyMapTable()),
        hooks_(std::move(hooks)) {
   if (!checks || Vel::noopAgent()) return;
   checks_ = std::make_unique<AsyncHookChecks>(*hooks_, std::move(*checks));
   reportTo(checks_.get());
}

AsyncHookGate::~AsyncHookGate() = default;

void AsyncHookGate::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) {
   pass("handleMrouteCounterMode", [&] { hooks_->handleMrouteCounterMode(mode); });
}

void AsyncHookGate::handleWildcardCounter(bool allCounter) {
   pass("handleWildcardCounter", [&] { hooks_->handleWildcardCounter(allCounter); });
}

bool AsyncHookGate::doCreateMrouteCounter(Vel::VrfId vrfId, IpGenRouteKey key) {
   return pass("doCreateMrouteCounter", false,
               [&] { return hooks_->doCreateMrouteCounter(vrfId, key); });
}

bool AsyncHookGate::doDeleteMrouteCounter(Vel::VrfId vrfId, IpGenRouteKey key) {
   return pass("doDeleteMrouteCounter", false,
               [&] { return hooks_->doDeleteMrouteCounter(vrfId, key); });
}

U32 AsyncHookGate::doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                                    OifSetPtr oifSet, XactPtr blockingXact,
                                                    bool excludeEmptyMcid) {
   return pass("doAllocateSharableMulticastGroup", invalidMulticastId, [&] {
      return checks_ ? checks_->doAllocateSharableMulticastGroup(routeKeyInfo, oifSet, blockingXact,
                                                                 excludeEmptyMcid)
                     : hooks_->doAllocateSharableMulticastGroup(routeKeyInfo, oifSet, blockingXact,
                                                                excludeEmptyMcid);
   });
}

U32 AsyncHookGate::doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact,
                                                 U32 mcastId) {
   return pass("doAllocateFixedMulticastGroup", invalidMulticastId, [&] {
      return checks_ ? checks_->doAllocateFixedMulticastGroup(oifSet, blockingXact, mcastId)
                     : hooks_->doAllocateFixedMulticastGroup(oifSet, blockingXact, mcastId);
   });
}

void AsyncHookGate::doUpdateMulticastGroupInPlace(OifSetPtr oifSet, U32 mcastId) {
   pass("doUpdateMulticastGroupInPlace", [&] {
      checks_ ? checks_->doUpdateMulticastGroupInPlace(oifSet, mcastId)
              : hooks_->doUpdateMulticastGroupInPlace(oifSet, mcastId);
   });
}

XactPtr AsyncHookGate::doGetXactForOifSet(U32 mcastId) {
   return pass("doGetXactForOifSet", nullptr, [&] {
      return checks_ ? checks_->doGetXactForOifSet(mcastId) : hooks_->doGetXactForOifSet(mcastId);
   });
}

Qor::String8 AsyncHookGate::doGetXactFailureReason(XactPtr xact,
                                                   VelHelper::MrouteXactType mrouteXactType) {
   return pass("doGetXactFailureReason", {}, [&] {
      return checks_ ? checks_->doGetXactFailureReason(xact, mrouteXactType)
                     : hooks_->doGetXactFailureReason(xact, mrouteXactType);
   });
}

void AsyncHookGate::doDeleteOifSet(U32 mcastId) {
   swallow("doDeleteOifSet",
           [&] { checks_ ? checks_->doDeleteOifSet(mcastId) : hooks_->doDeleteOifSet(mcastId); });
}

RouteHandle AsyncHookGate::doAllocateRoute(IpGenRouteKey const& routeKey,
                                           Bridging::VlanIdOrNone acceptingVlanId,
                                           bool bridgeAction, Wisp::Multicast::Fib::RpaIndex rpaId,
                                           U32 vrfId) {
   return pass("doAllocateRoute", {}, [&] {
      return checks_
                   ? checks_->doAllocateRoute(routeKey, acceptingVlanId, bridgeAction, rpaId, vrfId)
                   : hooks_->doAllocateRoute(routeKey, acceptingVlanId, bridgeAction, rpaId, vrfId);
   });
}

void AsyncHookGate::doSetMtableOifSet(RouteHandle handle, U32 mcastId, XactPtr blockingXact) {
   pass("doSetMtableOifSet", [&] {
      checks_ ? checks_->doSetMtableOifSet(handle, mcastId, blockingXact)
              : hooks_->doSetMtableOifSet(handle, mcastId, blockingXact);
   });
}

XactPtr AsyncHookGate::doGetXactForIngress(RouteHandle handle) {
   return pass("doGetXactForIngress", nullptr, [&] {
      return checks_ ? checks_->doGetXactForIngress(handle) : hooks_->doGetXactForIngress(handle);
   });
}

void AsyncHookGate::doDeleteRoute(RouteHandle handle) {
   pass("doDeleteRoute",
        [&] { checks_ ? checks_->doDeleteRoute(handle) : hooks_->doDeleteRoute(handle); });
}

Qor::Seconds AsyncHookGate::routeLastAccessedTime(RouteHandle handle) {
   return pass("routeLastAccessedTime", 0.0, [&] {
      return checks_ ? checks_->routeLastAccessedTime(handle)
                     : hooks_->routeLastAccessedTime(handle);
   });
}

bool AsyncHookGate::needFixedOifSet(RouteKeyType type) {
   auto const known = fixed_.find(type);
   if (known != fixed_.end()) return known->second;
   if (!open()) return false;
   bool const fixed = pass("needFixedOifSet", false, [&] { return hooks_->needFixedOifSet(type); });
   fixed_.emplace(type, fixed);
   return fixed;
}

bool AsyncHookGate::needIngressProgramming(RouteKeyType type) {
   return pass("needIngressProgramming", true,
               [&] { return hooks_->needIngressProgramming(type); });
}

bool AsyncHookGate::mcastIdReusable(U32 mcastId) {
   return pass("mcastIdReusable", false, [&] { return hooks_->mcastIdReusable(mcastId); });
}

bool AsyncHookGate::mcastIdIsValid(U32 mcastId) {
   return pass("mcastIdIsValid", false, [&] {
      return checks_ ? checks_->mcastIdIsValid(mcastId) : hooks_->mcastIdIsValid(mcastId);
   });
}

double AsyncHookGate::doGetAdjustedPollingInterval(double const& interval) {
   return pass("doGetAdjustedPollingInterval", interval, [&] {
      return checks_ ? checks_->doGetAdjustedPollingInterval(interval)
                     : hooks_->doGetAdjustedPollingInterval(interval);
   });
}

double AsyncHookGate::doGetAdjustedActivityPollInterval(double const& interval) {
   return pass("doGetAdjustedActivityPollInterval", interval, [&] {
      return checks_ ? checks_->doGetAdjustedActivityPollInterval(interval)
                     : hooks_->doGetAdjustedActivityPollInterval(interval);
   });
}

void AsyncHookGate::doScheduleVerify() {
   swallow("doScheduleVerify", [&] { hooks_->doScheduleVerify(); });
}

}  // namespace VelMroute
