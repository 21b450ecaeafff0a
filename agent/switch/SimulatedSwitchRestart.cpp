// The restart of a simulated switch's agent.
#include <algorithm>
#include <utility>

#include "Vel/VelPerSwitchSm.h"
#include "agent/switch/Recovery.h"
#include "agent/switch/SimulatedSwitch.h"

namespace Agent {

void SimulatedSwitch::routeIs(L3::VrfName const& vrf, RouteProgrammer::RouteKey const& key,
                              WantedRoute wanted) {
   replay_.drop({vrf, key});
   routeProgrammer().routeIs(vrf, key, std::move(wanted));
}

void SimulatedSwitch::routeDel(L3::VrfName const& vrf, RouteProgrammer::RouteKey const& key) {
   replay_.drop({vrf, key});
   routeProgrammer().routeDel(vrf, key);
}

RouteReplay::Routes SimulatedSwitch::wantedRoutes() const {
   RouteReplay::Routes routes = replay_.left();
   routeProgrammer().forEachRoute([&](RouteProgrammer::Route const& route) {
      routes.insert_or_assign({route.vrf(), route.key()}, *route.wanted());
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
   Sim::Faults const faults = path_->faults();  // faults of the hardware outlive the agent
   path_->detach(options.applied);
   before_ = figures();
   ++before_.restarts;
   if (timeline_) timeline_->crash();
   path_.reset();

   surroundings_.mfibHwStatus = Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   path_ = newPath();
   path_->faults() = faults;
   if (timeline_) path_->timelineIs(timeline_);
   for (auto const& [vrf, id] : vrfIds_)
      path_->vrfIs(vrf, id);
   recoverHwStatus(vrfIds_, path_->foundRoutes(), surroundings_.intfVlanIdTable,
                   surroundings_.mfibHwStatus);
   Sim::ChipConfig const& size = chip().config();
   routeProgrammer().recoveryIs(
         {[this](RouteProgrammer::Route const& route) { return isFound(route); },
          {size.groups - chip().groups(), size.routes - chip().routes().size(),
           size.boundaries - chip().boundaries().size()}});
   startedAt_ = Qor::now();
   replay_.start(std::move(routes), options);
}

bool SimulatedSwitch::isFound(RouteProgrammer::Route const& route) const {
   WantedRoute const& target = *route.target();
   Sim::Found const& found = path_->found();
   auto const& table = target.bridgeAction ? found.boundaries : found.routes;
   return table.find(vrfId(route.vrf())->value(), route.key(), target.acceptingVlan).has_value();
}

// Called when all routes are replayed. The sweep waits until the route programmer has placed the
// last of them, because that route may still take over a found group.
std::optional<Qor::Seconds> SimulatedSwitch::replayComplete() {
   if (!routeProgrammer().lookedAtAll()) return 0;
   if (routeProgrammer().recovering()) {
      routeProgrammer().recoveryDone();
      withdrawUnwanted();
      rerouteWhereDown();
   }
   if (path_->sweepUnadopted()) return std::nullopt;
   return std::max(chip().config().latency, Qor::Clock::retryGap);
}

// Withdraws the status of found routes that are not wanted.
void SimulatedSwitch::withdrawUnwanted() {
   std::vector<RouteId> unwanted;
   for (auto const& [vrf, status] : mfibHwStatus().vrfStatus()) {
      for (auto const& [key, route] : status->route()) {
         if (!std::as_const(*this).routeProgrammer().route(vrf, key))
            unwanted.push_back({vrf, key});
      }
   }
   for (RouteId const& id : unwanted)
      surroundings_.mfibHwStatus->vrfStatus(id.vrf)->routeDel(id.key);
}

// The new agent was not notified of failures before its start.
void SimulatedSwitch::rerouteWhereDown() {
   std::set<Lnet::IntfId> down;
   for (auto const& [intf, status] : surroundings_.ethIntfStatusDir->intfStatus()) {
      if (Vel::startsReroute(status->operStatus())) down.insert(intf);
   }
   if (path_->bfdAppStatus()) {
      for (auto const& [peer, status] : path_->bfdAppStatus()->peerStatus()) {
         bool const followed = peer.type() == Bfd::SessionType::singleHop;
         if (followed && status->status() == Bfd::OperState::down) down.insert(status->intf());
      }
   }
   for (Lnet::IntfId const intf : down) {
      if (rerouting_) rerouting_(intf);
      path_->reroute(intf);
   }
}

// ---- All agents so far ----

SimulatedSwitch::Figures SimulatedSwitch::figures() const {
   Figures all = before_;
   all.programmer.add(routeProgrammer().counters());
   all.adopted += path_->found().adopted;
   all.swept += path_->found().swept;
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
