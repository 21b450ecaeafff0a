#include "hooks/AsyncHookGate.h"

#include <utility>

namespace VelMroute {

using Hux::XactPtr;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U32;

AsyncHookGate::AsyncHookGate(Qor::Ptr<Hooks> hooks)
      : AsyncMrouteHelper(hooks->name(), hooks->activeCounterKeyTable(),
                          hooks->mrouteCounterKeyMapTable()),
        hooks_(std::move(hooks)) {}

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
      return hooks_->doAllocateSharableMulticastGroup(routeKeyInfo, oifSet, blockingXact,
                                                      excludeEmptyMcid);
   });
}

U32 AsyncHookGate::doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact,
                                                 U32 mcastId) {
   return pass("doAllocateFixedMulticastGroup", invalidMulticastId, [&] {
      return hooks_->doAllocateFixedMulticastGroup(oifSet, blockingXact, mcastId);
   });
}

void AsyncHookGate::doUpdateMulticastGroupInPlace(OifSetPtr oifSet, U32 mcastId) {
   pass("doUpdateMulticastGroupInPlace",
        [&] { hooks_->doUpdateMulticastGroupInPlace(oifSet, mcastId); });
}

XactPtr AsyncHookGate::doGetXactForOifSet(U32 mcastId) {
   return pass("doGetXactForOifSet", nullptr, [&] { return hooks_->doGetXactForOifSet(mcastId); });
}

Qor::String8 AsyncHookGate::doGetXactFailureReason(XactPtr xact,
                                                   VelHelper::MrouteXactType mrouteXactType) {
   return pass("doGetXactFailureReason", {},
               [&] { return hooks_->doGetXactFailureReason(xact, mrouteXactType); });
}

void AsyncHookGate::doDeleteOifSet(U32 mcastId) {
   swallow("doDeleteOifSet", [&] { hooks_->doDeleteOifSet(mcastId); });
}

RouteHandle AsyncHookGate::doAllocateRoute(IpGenRouteKey const& routeKey,
                                           Bridging::VlanIdOrNone acceptingVlanId,
                                           bool bridgeAction, Wisp::Multicast::Fib::RpaIndex rpaId,
                                           U32 vrfId) {
   return pass("doAllocateRoute", {}, [&] {
      return hooks_->doAllocateRoute(routeKey, acceptingVlanId, bridgeAction, rpaId, vrfId);
   });
}

void AsyncHookGate::doSetMtableOifSet(RouteHandle handle, U32 mcastId, XactPtr blockingXact) {
   pass("doSetMtableOifSet", [&] { hooks_->doSetMtableOifSet(handle, mcastId, blockingXact); });
}

XactPtr AsyncHookGate::doGetXactForIngress(RouteHandle handle) {
   return pass("doGetXactForIngress", nullptr, [&] { return hooks_->doGetXactForIngress(handle); });
}

void AsyncHookGate::doDeleteRoute(RouteHandle handle) {
   pass("doDeleteRoute", [&] { hooks_->doDeleteRoute(handle); });
}

Qor::Seconds AsyncHookGate::routeLastAccessedTime(RouteHandle handle) {
   return pass("routeLastAccessedTime", 0.0, [&] { return hooks_->routeLastAccessedTime(handle); });
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
   return pass("mcastIdIsValid", false, [&] { return hooks_->mcastIdIsValid(mcastId); });
}

double AsyncHookGate::doGetAdjustedPollingInterval(double const& interval) {
   return pass("doGetAdjustedPollingInterval", interval,
               [&] { return hooks_->doGetAdjustedPollingInterval(interval); });
}

double AsyncHookGate::doGetAdjustedActivityPollInterval(double const& interval) {
   return pass("doGetAdjustedActivityPollInterval", interval,
               [&] { return hooks_->doGetAdjustedActivityPollInterval(interval); });
}

void AsyncHookGate::doScheduleVerify() {
   swallow("doScheduleVerify", [&] { hooks_->doScheduleVerify(); });
}

}  // namespace VelMroute
