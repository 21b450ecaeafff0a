// The asynchronous path of a switch. Its reactor purges zombies, polls activity, and is
// notified of links, BFD sessions and configuration.
#pragma once

#include "Routing/Hardware/RouteStatus.h"
#include "agent/switch/SwitchPathBase.h"
#include "programmer/AsyncRouteTable.h"

namespace Agent {

class AsyncPath final : public SwitchPathBase<VelMroute::AsyncRouteTable> {
 public:
   // `crashed` is null at the first start of the agent.
   AsyncPath(Surroundings const& s, Crashed const* crashed);

   void vrfIs(L3::VrfName const& vrf, Vel::VrfId id) override {
      routeStatus_->newVrfStatus(vrf, id);
   }
   Bfd::AppStatus* bfdAppStatus() override { return bfdAppStatus_.get(); }

   std::vector<Qor::String> auditTables() const override;
   TreeRoots roots() const override;
   void timelineIs(Timeline* timeline) override;

 private:
   using RouteStatusPtr = Qor::Ptr<Routing::Hardware::RouteStatus>;

   AsyncPath(Surroundings const& s, Crashed const* crashed, RouteStatusPtr routeStatus);
   static std::unique_ptr<VelMroute::AsyncRouteTable> newTable(Surroundings const& s,
                                                               Crashed const* crashed,
                                                               RouteStatusPtr const& routeStatus);
   RecordRow rowOf(Vel::Mroute::AsyncMtableOifSet const& record) const override;

   Qor::Ptr<VelHelper::AsyncMrouteHelper> const hooks_;
   RouteStatusPtr const routeStatus_;
   Qor::Ptr<Bfd::AppStatus> const bfdAppStatus_;
};

}  // namespace Agent
