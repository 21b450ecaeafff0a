#include "programmer/internal/PublishedRoutes.h"

#include <unordered_map>

namespace VelMroute {

namespace {

// The objects in use, by status. The statuses live as long as their objects.
std::unordered_map<PublishedRoutes::Status const*, PublishedRoutes*>& objects() {
   static auto* const all =
         new std::unordered_map<PublishedRoutes::Status const*, PublishedRoutes*>;
   return *all;
}

}  // namespace

Qor::Ptr<PublishedRoutes> PublishedRoutes::of(Qor::Ptr<Status> status) {
   auto const known = objects().find(status.get());
   if (known != objects().end()) return known->second;
   auto made = Qor::make<PublishedRoutes>(status);
   objects().emplace(status.get(), made.get());
   return made;
}

PublishedRoutes::~PublishedRoutes() {
   objects().erase(status_.get());
}

Qor::Ptr<PublishedRoutes::VrfStatus> PublishedRoutes::vrfStatus(L3::VrfName const& vrf) {
   Qor::U64 const changes = status_->vrfStatus().changes();
   if (!last_ || changes_ != changes || last_->vrfName() != vrf) {
      last_ = status_->vrfStatus(vrf).get();
      changes_ = changes;
   }
   return last_;
}

PublishedRoutes::RouteStatusPtr PublishedRoutes::add(L3::VrfName const& vrf, RouteKey const& key) {
   auto routes = vrfStatus(vrf);
   if (!routes) routes = status_->vrfStatusIs(vrf);
   if (auto known = routes->route(key)) {
      ++further_[{vrf, key, {}}];
      return known;
   }
   return routes->routeIs(key);
}

PublishedRoutes::RouteStatusPtr PublishedRoutes::addFastdrop(L3::VrfName const& vrf,
                                                             RouteKey const& key,
                                                             Lnet::IntfId intf) {
   auto const routes = vrfStatus(vrf);
   auto const route = routes ? routes->route(key) : nullptr;
   if (!route) return nullptr;
   if (route->fastdropLastPollTime().find(intf.name())) {
      ++further_[{vrf, key, intf}];
   } else {
      route->fastdropLastPollTimeIs(intf.name(), 0);
   }
   return route;
}

bool PublishedRoutes::removeFurther(Id const& id) {
   auto const further = further_.find(id);
   if (further == further_.end()) return false;
   if (--further->second == 0) further_.erase(further);
   return true;
}

bool PublishedRoutes::remove(L3::VrfName const& vrf, RouteKey const& key) {
   if (!further_.empty()) {
      if (removeFurther({vrf, key, {}})) return false;
      removeFastdrops(vrf, key);
   }
   if (auto const routes = vrfStatus(vrf)) routes->routeDel(key);
   return true;
}

// The status of a route takes its fastdrop interfaces with it.
void PublishedRoutes::removeFastdrops(L3::VrfName const& vrf, RouteKey const& key) {
   auto const sameRoute = [&](Id const& id) {
      return std::get<0>(id) == vrf && std::get<1>(id) == key;
   };
   auto it = further_.lower_bound({vrf, key, {}});
   while (it != further_.end() && sameRoute(it->first))
      it = further_.erase(it);
}

void PublishedRoutes::removeFastdrop(L3::VrfName const& vrf, RouteKey const& key,
                                     Lnet::IntfId intf) {
   if (removeFurther({vrf, key, intf})) return;
   auto const routes = vrfStatus(vrf);
   if (auto const route = routes ? routes->route(key) : nullptr) {
      route->fastdropLastPollTimeDel(intf.name());
   }
}

}  // namespace VelMroute
