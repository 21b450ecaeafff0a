// The restart of a simulated switch's agent.
#include <utility>

#include "agent/switch/SimulatedSwitch.h"
#include "agent/switch/SwitchPathFactory.h"

namespace Agent {

void SimulatedSwitch::routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute wanted) {
   replay_.drop({vrf, key});
   programmer().routeIs(vrf, key, std::move(wanted));
}

void SimulatedSwitch::routeDel(L3::VrfName const& vrf, RouteKey const& key) {
   replay_.drop({vrf, key});
   programmer().routeDel(vrf, key);
}

RouteReplay::Routes SimulatedSwitch::wantedRoutes() const {
   RouteReplay::Routes routes = replay_.left();
   programmer().forEach([&](RouteView const& route) {
      routes.insert_or_assign({route.vrf(), route.key()}, route.wanted());
   });
   return routes;
}

void SimulatedSwitch::timelineIs(Timeline* timeline) {
   timeline_ = timeline;
   path_->timelineIs(timeline);
}

// ---- Crash and start ----

void SimulatedSwitch::restart(RestartOptions const& options) {
   RouteReplay::Routes routes = wantedRoutes();
   Crashed const crashed{vrfIds_, path_->faults()};
   path_->detach(options.applied);
   before_ = figures();
   ++before_.restarts;
   if (timeline_) timeline_->crash();
   path_.reset();

   surroundings_.mfibHwStatus = Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   path_ = newSwitchPath(pathKind_, surroundings_, pathConfig_, &crashed);
   programmer().onReroute(rerouting_);
   if (timeline_) path_->timelineIs(timeline_);
   startedAt_ = Qor::now();
   replay_.start(std::move(routes), options);
}

// ---- All agents so far ----

SimulatedSwitch::Figures SimulatedSwitch::figures() const {
   Figures all = before_;
   all.programmer.add(programmer().counters());
   for (Qor::String& fault : path_->platformFaults())
      all.faults.push_back(std::move(fault));
   return all;
}

std::vector<Qor::String> SimulatedSwitch::audit() const {
   std::vector<Qor::String> faults = before_.faults;
   for (Qor::String& fault : path_->audit())
      faults.push_back(std::move(fault));
   return faults;
}

}  // namespace Agent
