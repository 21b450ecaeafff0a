// The asynchronous path of a simulated switch. Its reactor purges zombies, polls activity, and is
// notified of links, BFD sessions and configuration.
#pragma once

#include "Routing/Hardware/RouteStatus.h"
#include "Vel/VelAsyncMrouteSm.h"
#include "agent/programmer/AsyncRouteProgrammer.h"
#include "agent/switch/SwitchPathBase.h"
#include "platform/sim/AsyncPlatform.h"

namespace Agent {

class AsyncPath final : public SwitchPathBase<Vel::Mroute::AsyncMrouteSwitch> {
 public:
   AsyncPath(Surroundings const& surroundings, PathConfig const& config);

   RouteProgrammer& routeProgrammer() override { return routeProgrammer_; }
   RouteProgrammer const& routeProgrammer() const override { return routeProgrammer_; }
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
   std::vector<VelMroute::Restart::Route> foundRoutes() const override {
      return platform_->foundRoutes();
   }
   bool sweepUnadopted() override;
   void reroute(Lnet::IntfId intf) override { reactor_->updateFrrMtableOif(intf); }

   void timelineIs(Timeline* timeline) override;

 private:
   using PlatformPtr = Qor::Ptr<Sim::AsyncPlatform>;
   using RouteStatusPtr = Qor::Ptr<Routing::Hardware::RouteStatus>;

   AsyncPath(Surroundings const& surroundings, PlatformPtr platform, RouteStatusPtr routeStatus);
   RecordRow rowOf(Vel::Mroute::AsyncMtableOifSet const& record) const override;

   PlatformPtr const platform_;
   RouteStatusPtr const routeStatus_;
   Qor::Ptr<Bfd::AppStatus> const bfdAppStatus_;
   AsyncRouteProgrammer routeProgrammer_;
   Qor::Ptr<Vel::Mroute::AsyncMrouteSwitchSm> const reactor_;
};

}  // namespace Agent
