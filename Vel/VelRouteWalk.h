// The walk over the routes of the hardware status, as the aging reviews of both paths do it: a
// slice at a time, from a position that outlives whatever happens to the tables in between.
#pragma once

#include <iterator>

#include "Routing/Multicast/Fib/Hardware/Status.h"

namespace Vel {

// A place in the walk: a route of a VRF, or where it was. The empty VRF name is the beginning.
struct RoutePosition {
   L3::VrfName vrfName;
   Routing::Multicast::Fib::IpGenRouteKey routeKey;

   bool isBeginning() const { return vrfName == L3::VrfName(); }
};

enum class WalkFrom { position, behindPosition };

// Calls enterVrf(vrfName) for each VRF, and where that says true, visit(vrfName, routeStatus) for
// each of its routes; both in the order of the keys, from the position on. Goes by keys: whoever
// hears of what a visit did may add and remove routes and VRFs. The routes of a VRF that has been
// removed meanwhile are left out. Returns false as soon as a visit does, and true at the end. While
// a table stays as it is, the walk steps through it instead of looking its place up again.
template <class EnterVrf, class Visit>
bool walkRoutes(Routing::Multicast::Fib::Hardware::Status const& status, RoutePosition const& from,
                WalkFrom where, EnterVrf const& enterVrf, Visit const& visit) {
   auto const& vrfs = status.vrfStatus();
   for (auto vrf = vrfs.lowerBound(from.vrfName); vrf != vrfs.end();) {
      L3::VrfName const vrfName = vrf->first;
      auto const vrfStatus = vrf->second;
      Qor::U64 const vrfChanges = vrfs.changes();
      auto const isHere = [&] {
         return vrfs.changes() == vrfChanges || status.vrfStatus(vrfName) == vrfStatus;
      };
      if (enterVrf(vrfName)) {
         auto const& routes = vrfStatus->route();
         auto route = routes.begin();
         if (vrfName == from.vrfName) {
            route = where == WalkFrom::position ? routes.lowerBound(from.routeKey)
                                                : routes.upperBound(from.routeKey);
         }
         while (route != routes.end() && isHere()) {
            auto const key = route->first;
            auto const routeStatus = route->second;
            Qor::U64 const changes = routes.changes();
            if (!visit(vrfName, *routeStatus)) return false;
            route = routes.changes() == changes ? std::next(route) : routes.upperBound(key);
         }
      }
      vrf = vrfs.upperBound(vrfName);
   }
   return true;
}

}  // namespace Vel
