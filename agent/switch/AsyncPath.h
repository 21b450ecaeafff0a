// The asynchronous path of a simulated switch. Its reactor purges zombies, polls activity, and is
// notified of links, BFD sessions and configuration.
#pragma once

#include "Routing/Hardware/RouteStatus.h"
#include "agent/switch/SwitchPathBase.h"
#include "platform/sim/AsyncPlatform.h"
#include "programmer/AsyncRouteTable.h"

namespace Agent {

class AsyncPath final : public SwitchPathBase<VelMroute::AsyncRouteTable> {
 public:
   AsyncPath(Surroundings const& s, PathConfig const& config, Crashed const* crashed);

   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) override {
      routeStatus_->newVrfStatus(vrf, id);
   }
   Bfd::AppStatus* bfdAppStatus() override { return bfdAppStatus_.get(); }

   Sim::Faults& faults() override { return platform_->faults(); }
   Sim::Faults const& faults() const override { return platform_->faults(); }
   std::vector<Qor::String> audit() const override { return platform_->audit(); }
   std::vector<Qor::String> platformFaults() const override {
      return platform_->violations().texts();
   }
   bool writesPending() const override { return platform_->queue()->pending() != 0; }
   Qor::U32 groupsAllocated() const override { return platform_->groupsAllocated(); }

   Sim::Entry const* entry(MrouteLib::RouteHandle handle) const override {
      return platform_->chip()->routes().find(handle.value());
   }

   std::vector<Qor::String> auditTables() const override;
   TreeRoots roots() const override;
   void detach(Qor::U32 applied) override { platform_->detach(applied); }
   Sim::Found const& found() const override { return platform_->found(); }

   void timelineIs(Timeline* timeline) override;

 private:
   using PlatformPtr = Qor::Ptr<Sim::AsyncPlatform>;
   using RouteStatusPtr = Qor::Ptr<Routing::Hardware::RouteStatus>;

   AsyncPath(Surroundings const& s, Crashed const* crashed, PlatformPtr platform,
             RouteStatusPtr routeStatus);
   static std::unique_ptr<VelMroute::AsyncRouteTable> newTable(Surroundings const& s,
                                                               Crashed const* crashed,
                                                               PlatformPtr const& platform,
                                                               RouteStatusPtr const& routeStatus);
   static std::unique_ptr<Sim::ChipRestart> newRestart(PlatformPtr const& platform);
   RecordRow rowOf(Vel::Mroute::AsyncMtableOifSet const& record) const override;

   PlatformPtr const platform_;
   RouteStatusPtr const routeStatus_;
   Qor::Ptr<Bfd::AppStatus> const bfdAppStatus_;
};

}  // namespace Agent
