// The gate in front of a platform's hooks of the asynchronous path (hooks/HookGate.h). The
// hooks doDeleteOifSet and doScheduleVerify may run inside a destructor, so the gate swallows their
// errors. needFixedOifSet may, too: the gate asks the platform once for each type, in an
// allocation, and keeps the answer.
#pragma once

#include <map>
#include <memory>
#include <optional>

#include "Vel/VelAsyncMrouteHelper.h"
#include "hooks/AsyncHookChecks.h"
#include "hooks/HookGate.h"

namespace VelMroute {

class AsyncHookGate final : public VelHelper::AsyncMrouteHelper, public HookGate {
 public:
   using Hooks = VelHelper::AsyncMrouteHelper;
   using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
   using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;

   // Holds the hooks. The counter tables are those of the hooks; the platform keeps its collections
   // of counter keys in its own object. With `checks` the gate checks the hooks.
   // RangeException "VelMroute::AsyncHookGate::hooks null not allowed".
   explicit AsyncHookGate(Qor::Ptr<Hooks> hooks, std::optional<HookChecks::Options> checks = {});

   Qor::Ptr<Hooks> const& hooks() const { return hooks_; }
   // The checks with the faults and the shadow; null if the gate does not check.
   AsyncHookChecks const* checks() const { return checks_.get(); }

   void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) override;
   void handleWildcardCounter(bool allCounter) override;
   bool doCreateMrouteCounter(Vel::VrfId vrfId, IpGenRouteKey key) override;
   bool doDeleteMrouteCounter(Vel::VrfId vrfId, IpGenRouteKey key) override;
   Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                             MrouteLib::OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                             bool excludeEmptyMcid) override;
   Qor::U32 doAllocateFixedMulticastGroup(MrouteLib::OifSetPtr oifSet, Hux::XactPtr blockingXact,
                                          Qor::U32 mcastId) override;
   void doUpdateMulticastGroupInPlace(MrouteLib::OifSetPtr oifSet, Qor::U32 mcastId) override;
   Hux::XactPtr doGetXactForOifSet(Qor::U32 mcastId) override;
   Qor::String8 doGetXactFailureReason(Hux::XactPtr xact,
                                       VelHelper::MrouteXactType mrouteXactType) override;
   void doDeleteOifSet(Qor::U32 mcastId) override;
   MrouteLib::RouteHandle doAllocateRoute(IpGenRouteKey const& routeKey,
                                          Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                                          Wisp::Multicast::Fib::RpaIndex rpaId,
                                          Qor::U32 vrfId) override;
   void doSetMtableOifSet(MrouteLib::RouteHandle handle, Qor::U32 mcastId,
                          Hux::XactPtr blockingXact) override;
   Hux::XactPtr doGetXactForIngress(MrouteLib::RouteHandle handle) override;
   void doDeleteRoute(MrouteLib::RouteHandle handle) override;
   Qor::Seconds routeLastAccessedTime(MrouteLib::RouteHandle handle) override;
   bool needFixedOifSet(RouteKeyType type) override;
   bool needIngressProgramming(RouteKeyType type) override;
   bool mcastIdReusable(Qor::U32 mcastId) override;
   bool mcastIdIsValid(Qor::U32 mcastId) override;
   double doGetAdjustedPollingInterval(double const& interval) override;
   double doGetAdjustedActivityPollInterval(double const& interval) override;
   void doScheduleVerify() override;

 private:
   ~AsyncHookGate() override;

   Qor::Ptr<Hooks> const hooks_;
   std::unique_ptr<AsyncHookChecks> checks_;  // or null
   std::map<RouteKeyType, bool> fixed_;
};

}  // namespace VelMroute
