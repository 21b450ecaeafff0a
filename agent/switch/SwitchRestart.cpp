// The restart of a simulated switch's agent.
#include <utility>

#include "agent/switch/Switch.h"
#include "agent/switch/SwitchPathFactory.h"

namespace Agent {

void Switch::routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute wanted) {
   replay_.drop(vrf, key);
   bool const known = history_ && programmer().view(vrf, key);
   bool const differs = programmer().routeIs(vrf, key, std::move(wanted));
   if (!history_ || !differs) return;
   history_->route(known ? HistoryEvent::Kind::changed : HistoryEvent::Kind::wanted, vrf, key);
}

void Switch::routeDel(L3::VrfName const& vrf, RouteKey const& key) {
   replay_.drop(vrf, key);
   bool const wanted = programmer().routeDel(vrf, key);
   if (history_ && wanted) history_->route(HistoryEvent::Kind::withdrawn, vrf, key);
}

RouteReplay::Routes Switch::wantedRoutes() const {
   RouteReplay::Routes routes = replay_.left();
   programmer().forEach([&](RouteView const& route) {
      routes.insert_or_assign({route.vrf(), route.key()}, route.wanted());
   });
   return routes;
}

WantedRoute const* Switch::wanted(RouteId const& id) const {
   if (auto const route = programmer().view(id.vrf, id.key)) return &route->wanted();
   auto const left = replay_.left().find(id);
   return left == replay_.left().end() ? nullptr : &left->second;
}

void Switch::timelineIs(Timeline* timeline) {
   timeline_ = timeline;
   path_->timelineIs(timeline);
}

// ---- Crash and start ----

bool Switch::restart(RestartOptions const& options) {
   RouteReplay::Routes routes = wantedRoutes();
   Qor::Ptr<VelMroute::Platform> next = platform().crash(options.applied);
   if (!next) return false;
   before_ = figures();
   ++before_.restarts;
   if (timeline_) timeline_->crash();
   path_.reset();

   surroundings_.platform = std::move(next);
   surroundings_.mfibHwStatus = Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   Crashed const crashed{vrfIds_};
   if (history_) history_->restart();
   pathIs(newSwitchPath(surroundings_, &crashed));
   programmer().onReroute(rerouting_);
   if (timeline_) path_->timelineIs(timeline_);
   startedAt_ = Qor::now();
   replay_.start(std::move(routes), options);
   return true;
}

// ---- All agents so far ----

Switch::Figures Switch::figures() const {
   Figures all = before_;
   all.programmer.add(programmer().counters());
   for (Qor::String& fault : platform().violations())
      all.faults.push_back(std::move(fault));
   for (Qor::String& fault : path_->faults())
      all.faults.push_back(std::move(fault));
   return all;
}

std::vector<Qor::String> Switch::audit() const {
   path_->verify();
   std::vector<Qor::String> faults = before_.faults;
   for (Qor::String& fault : platform().audit())
      faults.push_back(std::move(fault));
   for (Qor::String& fault : path_->faults())
      faults.push_back(std::move(fault));
   return faults;
}

}  // namespace Agent
