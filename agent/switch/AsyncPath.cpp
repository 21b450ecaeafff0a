#include "agent/switch/AsyncPath.h"

#include "agent/timeline/AsyncObserver.h"

namespace Agent {

AsyncPath::AsyncPath(Surroundings const& s, Crashed const* crashed)
      : AsyncPath(s, crashed, Qor::make<Routing::Hardware::RouteStatus>()) {}

AsyncPath::AsyncPath(Surroundings const& s, Crashed const* crashed, RouteStatusPtr routeStatus)
      : SwitchPathBase(s, newTable(s, crashed, routeStatus), crashed != nullptr),
        hooks_(s.platform->asyncHooks()),
        routeStatus_(std::move(routeStatus)),
        bfdAppStatus_(s.bfdAppStatus) {}

std::unique_ptr<VelMroute::AsyncRouteTable> AsyncPath::newTable(Surroundings const& s,
                                                                Crashed const* crashed,
                                                                RouteStatusPtr const& routeStatus) {
   auto table = std::make_unique<VelMroute::AsyncRouteTable>(
         VelMroute::AsyncRouteTable::Inputs{.hooks = s.platform->asyncHooks(),
                                            .checks = hookChecks(s, crashed != nullptr),
                                            .vrfs = routeStatus,
                                            .vlans = s.intfVlanIdTable,
                                            .config = s.mfibConfig,
                                            .published = s.mfibHwStatus,
                                            .links = s.ethIntfStatusDir,
                                            .bfdPeers = Qor::make<Bfd::StatusPeer>(),
                                            .bfd = s.bfdAppStatus,
                                            .intfs = nullptr,
                                            .localIntfs = nullptr});
   if (!crashed) return table;
   for (auto const& [vrf, id] : crashed->vrfs)
      routeStatus->newVrfStatus(vrf, id);
   return table;
}

TreeRoots AsyncPath::roots() const {
   return {{"bfd", Qor::toGeneric(bfdAppStatus_)},
           {"helper/1", Qor::toGeneric(hooks_)},
           {"routeStatus", Qor::toGeneric(routeStatus_)},
           {"sm/1", Qor::toGeneric(table().reactor())},
           {"switch/1", Qor::toGeneric(mrouteSwitch())}};
}

void AsyncPath::timelineIs(Timeline* timeline) {
   if (!timeline) {
      table().onXact(nullptr);
      return;
   }
   timeline->observe(std::make_unique<AsyncObserver>(*timeline, *mrouteSwitch()));
   table().onXact([timeline](Qor::String const& name, Hux::XactPtr const& xact) {
      timeline->xact(name, xact);
   });
}

RecordRow AsyncPath::rowOf(Vel::Mroute::AsyncMtableOifSet const& record) const {
   RecordRow row;
   row.index = record.multicastId();
   row.usedInHw = record.usedInHw();
   return row;
}

}  // namespace Agent
