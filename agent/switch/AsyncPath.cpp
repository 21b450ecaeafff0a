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

AsyncPath::AsyncPath(Surroundings const& surroundings, PathConfig const& config)
      : AsyncPath(surroundings,
                  Qor::make<Sim::AsyncPlatform>("sim", surroundings.chip, platformConfig(config)),
                  Qor::make<Routing::Hardware::RouteStatus>()) {}

AsyncPath::AsyncPath(Surroundings const& s, PlatformPtr platform, RouteStatusPtr routeStatus)
      : SwitchPathBase(Vel::Mroute::asyncMrouteSwitchFactory("switch1", routeStatus, platform)),
        platform_(std::move(platform)),
        routeStatus_(std::move(routeStatus)),
        bfdAppStatus_(s.bfdAppStatus),
        routeProgrammer_(mrouteSwitch(), Qor::make<MrouteLib::MrouteTableColl>(), s.mfibHwStatus),
        reactor_(Vel::Mroute::asyncMrouteSwitchSmFactory(
              {.mrouteSwitch = mrouteSwitch(),
               .intfVlanIdTable = s.intfVlanIdTable,
               .mfibConfig = s.mfibConfig,
               .mfibHwStatus = s.mfibHwStatus,
               .mrouteHelper = platform_,
               .zombieClock = Qor::make<Qor::Clock>("zombieClock"),
               .agingClock = Qor::make<Qor::Clock>("agingClock"),
               .ethIntfStatusDir = s.ethIntfStatusDir,
               .bfdAllPeerStatusDir = Qor::make<Bfd::StatusPeer>(),
               .bfdAllPeerStatus = bfdAppStatus_})) {}

TreeRoots AsyncPath::roots() const {
   return {{"bfd", Qor::toGeneric(bfdAppStatus_)},
           {"helper/1", Qor::toGeneric(Qor::Ptr<VelHelper::AsyncMrouteHelper>(platform_))},
           {"routeStatus", Qor::toGeneric(routeStatus_)},
           {"sm/1", Qor::toGeneric(reactor_)},
           {"switch/1", Qor::toGeneric(mrouteSwitch())}};
}

bool AsyncPath::sweepUnadopted() {
   bool const all = platform_->sweepUnadopted();
   routeProgrammer_.tryAgain();
   return all;
}

void AsyncPath::timelineIs(Timeline* timeline) {
   if (!timeline) {
      routeProgrammer_.xactObserverIs(nullptr);
      return;
   }
   timeline->observe(std::make_unique<AsyncObserver>(*timeline, *mrouteSwitch()));
   routeProgrammer_.xactObserverIs([timeline](Qor::String const& name, Hux::XactPtr const& xact) {
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
