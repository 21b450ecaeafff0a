// The gate in front of a platform's hooks of the synchronous path (hooks/HookGate.h). Each
// chip has a gate of its own, and the agent-wide reactor another one. The hooks
// handleFreeMtableOifSet and mrouteSwitchInit(switchId, false) run inside destructors, so the gate
// swallows their errors.
#pragma once

#include <memory>
#include <optional>

#include "Vel/VelSyncMrouteHelper.h"
#include "hooks/HookGate.h"
#include "hooks/SyncHookChecks.h"

namespace VelMroute {

class SyncHookGate final : public VelHelper::MrouteSmHelper, public HookGate {
 public:
   using Hooks = VelHelper::MrouteSmHelper;
   using RouteHandle = MrouteLib::RouteHandle;
   using VlanIdOrNone = Bridging::VlanIdOrNone;

   // Holds the hooks. The agent-wide reactor of this gate becomes that of the hooks: mrouteSm() of
   // the platform's own object names it. With `checks` the gate checks the hooks.
   // RangeException "VelMroute::SyncHookGate::hooks null not allowed".
   explicit SyncHookGate(Qor::Ptr<Hooks> hooks, std::optional<HookChecks::Options> checks = {});

   Qor::Ptr<Hooks> const& hooks() const { return hooks_; }
   // The checks with the faults and the shadows; null if the gate does not check.
   SyncHookChecks const* checks() const { return checks_.get(); }

   void mrouteInit(bool start) override;
   void handleMulticastRouting(bool enabled) override;
   void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) override;
   void verifyMulticastRouting(bool enabled) override;
   void mrouteSwitchInit(Qor::U32 switchId, bool start) override;
   Qor::U32 doAllocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                   MrouteLib::OifSetPtr oifSet) override;
   Qor::U32 doReallocateMtableOifSet(Qor::U32 switchId, Qor::U32 oifSetIndex,
                                     MrouteLib::OifSetPtr oifSet) override;
   void handleFreeMtableOifSet(Qor::U32 switchId, Qor::Ptr<Vel::MtableOifSet> record) override;
   Qor::U32 doCreateMrouteCounter(Qor::U16 vrfId, IpGenRouteKey const& key) override;
   void doDeleteMrouteCounter(IpGenRouteKey const& key) override;
   void doClearMrouteCounter(IpGenRouteKey const& key) override;
   Qor::U64 doReadMrouteCounter(IpGenRouteKey const& key) override;
   void ageOutHwMcastCounter(IpGenRouteKey const& key) override;
   RouteHandle doAllocateMroute(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                                VlanIdOrNone acceptingVlanId, bool bridge, Qor::U32 oifSetIndex,
                                bool fastDrop, Qor::U16 rpaId) override;
   RouteHandle doAllocateMrouteNoRpf(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                                     bool bridge, Qor::U32 oifSetIndex, bool fastDrop,
                                     Qor::U16 rpaId) override;
   void doSetMtableOifSet(Qor::U32 switchId, Qor::U16 vrfId, RouteHandle handle,
                          Qor::Ptr<Vel::Route const> route, Qor::U32 oifSetIndex) override;
   void doDeleteMroute(Qor::U32 switchId, Qor::U16 vrfId, RouteHandle handle,
                       Qor::Ptr<Vel::Route const> route) override;
   void doDeleteMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId, RouteHandle handle,
                               Qor::Ptr<Vel::Boundary const> boundary) override;
   void doCommitMrouteBatch() override;
   bool mrouteFull(Qor::U32 switchId) override;
   bool mrouteBoundaryFull(Qor::U32 switchId) override;
   bool mtableFull(Qor::U32 switchId) override;
   bool mrouteHitBit(Qor::U32 switchId, Qor::U16 vrfId, IpGenRouteKey const& key,
                     VlanIdOrNone acceptingVlanId, bool boundary) override;
   Qor::U8 mrouteHitBitCacheRefresh(Qor::U32 switchId) override;
   void mrouteHitBitCacheClear(Qor::U32 switchId) override;
   void triggerRouteAgingReview() override;
   void verifyMroute(Qor::U32 switchId, Qor::U16 vrfId, Qor::Ptr<Vel::Route const> route) override;
   void verifyMrouteBoundary(Qor::U32 switchId, Qor::U16 vrfId,
                             Qor::Ptr<Vel::Boundary const> boundary) override;

 private:
   // Passes the agent-wide reactor on to the hooks.
   class Forward final : public Hooks::Notifiee {
    public:
      explicit Forward(SyncHookGate& gate) : gate_(gate) { notifierIs(&gate); }
      void onMrouteSm() override { gate_.hooks_->mrouteSmIs(gate_.mrouteSm()); }

    private:
      SyncHookGate& gate_;
   };

   ~SyncHookGate() override;

   Qor::Ptr<Hooks> const hooks_;
   std::unique_ptr<SyncHookChecks> checks_;  // or null
   Forward forward_{*this};
};

}  // namespace VelMroute
