// The wishes of the owner, and the views that it gets.
#include <algorithm>
#include <utility>

#include "Qor/Exception.h"
#include "programmer/internal/ProgrammerWork.h"

namespace VelMroute {

bool ProgrammerWork::routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute&& wanted) {
   if (end_ != Ending::no) {
      Qor::throwRange("VelMroute::Programmer::routeIs after end not allowed");
   }
   if (key.isNull()) {
      Qor::throwRange("VelMroute::Programmer::key " + key.pretty() + " not allowed");
   }
   checkWanted(wanted);
   WishPtr const wish = wishes_.get(std::move(wanted), false);

   Vrf* const before = vrfOf(vrf);
   Vrf& in = before ? *before : vrfs_.try_emplace(vrf, *this, vrf).first->second;
   auto const [entry, made] =
         in.routes.findOrMake(key, [&] { return Qor::make<ProgrammedRoute>(in, key); });
   RoutePtr const route = entry;
   records_ += made;
   route->resync = resyncs_;
   if (route->wish == wish) {
      ++counters_.unchanged;
      return false;
   }
   wantedRoutes_ += route->wish == nullptr;
   want(*route, wish);

   auto const& drops = wish->wanted().fastdrop;
   for (RoutePtr const& old : route->fastdrops()) {
      if (!old->wish) continue;
      if (!std::binary_search(drops.begin(), drops.end(), old->wish->wanted().iif)) {
         old->wish = nullptr;
         mark(*old);
      }
   }
   for (Lnet::IntfId const intf : drops) {
      auto& entries = route->work().fastdrops;
      auto const known = std::find_if(entries.begin(), entries.end(), [&](RoutePtr const& drop) {
         return drop->workIfAny()->intf == intf;
      });
      RoutePtr drop = known == entries.end() ? nullptr : *known;
      if (!drop) {
         drop = Qor::make<ProgrammedRoute>(in, key);
         drop->work().owner = route.get();
         drop->work().intf = intf;
         entries.push_back(drop);
         ++records_;
      }
      WantedRoute dropped;
      dropped.iif = intf;
      WishPtr const dropWish = wishes_.get(std::move(dropped), true);
      if (drop->wish != dropWish) want(*drop, dropWish);
   }
   return true;
}

void ProgrammerWork::want(ProgrammedRoute& route, WishPtr wish) {
   route.wish = std::move(wish);
   if (RouteWork* const work = route.workIfAny()) work->attempts = 0;
   mark(route);
}

bool ProgrammerWork::routeDel(L3::VrfName const& vrf, RouteKey const& key) {
   Vrf const* const in = vrfOf(vrf);
   RoutePtr const route = in ? in->find(key) : nullptr;
   if (!route || !route->wish) return false;
   wantNoMore(*route);
   return true;
}

// The routes of the VRF; null if the owner never named it. Most calls are for the VRF of the call
// before.
ProgrammerWork::Vrf* ProgrammerWork::vrfOf(L3::VrfName const& vrf) {
   if (!lastVrf_ || lastVrf_->name != vrf) {
      auto const found = vrfs_.find(vrf);
      lastVrf_ = found == vrfs_.end() ? nullptr : &found->second;
   }
   return lastVrf_;
}

// Withdraws the wish of a route with its fastdrop entries.
void ProgrammerWork::wantNoMore(ProgrammedRoute& route) {
   if (!route.wish) return;
   route.wish = nullptr;
   --wantedRoutes_;
   mark(route);
   for (RoutePtr const& drop : route.fastdrops()) {
      drop->wish = nullptr;
      mark(*drop);
   }
}

ProgrammedRoute const* ProgrammerWork::find(L3::VrfName const& vrf, RouteKey const& key) const {
   auto const in = vrfs_.find(vrf);
   ProgrammedRoute const* const route = in == vrfs_.end() ? nullptr : in->second.find(key);
   return route && route->wish ? route : nullptr;
}

void ProgrammerWork::forEach(std::function<void(ProgrammedRoute const&)> const& visit) const {
   for (auto const& [name, vrf] : vrfs_) {
      for (auto const& [key, route] : vrf.routes) {
         if (route->wish) visit(*route);
      }
   }
}

// ---- State. ----

Qor::U32 ProgrammerWork::waiting() const {
   std::size_t sum = 0;
   for (WaitingLine const& line : lines_)
      sum += line.size();
   return static_cast<Qor::U32>(sum);
}

std::optional<RouteView::Place> ProgrammerWork::placeInLine(ProgrammedRoute const& route) const {
   for (Table const table : allTables) {
      WaitingLine const& line = lines_[static_cast<std::size_t>(table)];
      if (route.waitingIn() == &line)
         return RouteView::Place{table, line.before(route), line.size()};
   }
   return std::nullopt;
}

ProgrammerWork::Counters ProgrammerWork::counters() const {
   Counters all = counters_;
   all.thrown += table_->hookErrors().swallowed;
   if (restart_) {
      all.adopted = restart_->adopted();
      all.swept = restart_->swept();
   }
   return all;
}

bool ProgrammerWork::settled() const {
   bool const sliced = resync_ != Resync::none && resync_ != Resync::naming;
   return placedAll() && programming_ == 0 && !someMayTry() && !sliced &&
          (end_ == Ending::no || end_ == Ending::ended);
}

Qor::String ProgrammerWork::reasonOf(ProgrammedRoute const& route) const {
   switch (route.state) {
      case RouteState::inHardware:
         return {};
      case RouteState::queued:
         return "not looked at yet";
      case RouteState::programming:
         return "transactions under way";
      case RouteState::waitingGroup:
         return table_->explain(Table::group, recovering_);
      case RouteState::waitingEntry:
         return table_->explain(Table::entry, recovering_);
      case RouteState::waitingBoundary:
         return table_->explain(Table::boundary, recovering_);
      case RouteState::waitingVrf:
         return table_->explainVrf(route.vrf.name);
      case RouteState::waitingVlan:
         return "interface " + resolve(route).missing.name() + " has no vlan";
      case RouteState::failed:
         return route.workIfAny() ? route.workIfAny()->trouble : "failed";
   }
   return {};
}

bool ProgrammerWork::changes(
      Qor::U32 most, std::function<void(L3::VrfName const&, RouteKey const&)> const& visit) {
   for (; most > 0 && !listed_.empty(); --most) {
      RoutePtr const route = std::move(listed_.front());
      listed_.pop_front();
      route->listed = false;
      visit(route->vrf.name, route->key);
   }
   return !listed_.empty();
}

void ProgrammerWork::onChanges(std::function<void()> wake) {
   wake_ = std::move(wake);
}

}  // namespace VelMroute
