#include "agent/switch/AsyncPath.h"

#include "agent/timeline/AsyncObserver.h"

namespace Agent {

namespace {

Sim::AsyncPlatformConfig platformConfig(PathConfig const& config) {
   Sim::AsyncPlatformConfig out;
   out.minPollingInterval = config.minPollingInterval;
   out.callCost = config.callCost;
   return out;
}

}  // namespace

AsyncPath::AsyncPath(Surroundings const& s, PathConfig const& config, Crashed const* crashed)
      : AsyncPath(s, crashed, Qor::make<Sim::AsyncPlatform>("sim", s.chip, platformConfig(config)),
                  Qor::make<Routing::Hardware::RouteStatus>()) {}

AsyncPath::AsyncPath(Surroundings const& s, Crashed const* crashed, PlatformPtr platform,
                     RouteStatusPtr routeStatus)
      : SwitchPathBase(s, newTable(s, crashed, platform, routeStatus),
                       crashed ? newRestart(platform) : nullptr),
        platform_(std::move(platform)),
        routeStatus_(std::move(routeStatus)),
        bfdAppStatus_(s.bfdAppStatus) {}

std::unique_ptr<VelMroute::AsyncRouteTable> AsyncPath::newTable(Surroundings const& s,
                                                                Crashed const* crashed,
                                                                PlatformPtr const& platform,
                                                                RouteStatusPtr const& routeStatus) {
   auto table = std::make_unique<VelMroute::AsyncRouteTable>(
         VelMroute::AsyncRouteTable::Inputs{.hooks = platform,
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
   platform->faults() = crashed->faults;
   for (auto const& [vrf, id] : crashed->vrfs)
      routeStatus->newVrfStatus(vrf, id);
   return table;
}

std::unique_ptr<Sim::ChipRestart> AsyncPath::newRestart(PlatformPtr const& platform) {
   return std::make_unique<Sim::ChipRestart>(*platform->chip(), platform->found(),
                                             [platform] { return platform->sweepUnadopted(); });
}

TreeRoots AsyncPath::roots() const {
   return {{"bfd", Qor::toGeneric(bfdAppStatus_)},
           {"helper/1", Qor::toGeneric(Qor::Ptr<VelHelper::AsyncMrouteHelper>(platform_))},
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
   row.group = row.index = record.multicastId();
   row.usedInHw = record.usedInHw();
   return row;
}

}  // namespace Agent
