// Private header: the walk over the routes of the hardware status, for the aging reviews of both
// paths. A walk runs in slices. Its position is a key, and stays valid while routes and VRFs come
// and go between two slices.
#pragma once

#include <iterator>

#include "Routing/Multicast/Fib/Hardware/Status.h"

namespace Vel {

// A place in the walk: the key of a route of a VRF, whether or not the route still exists. The
// empty VRF name is the beginning.
struct RoutePosition {
   L3::VrfName vrfName;
   Routing::Multicast::Fib::IpGenRouteKey routeKey;
};

enum class WalkFrom { position, behindPosition };

// Calls enterVrf(vrfName) for each VRF, and if that returns true, visit(vrfName, routeStatus) for
// each route of the VRF; both in the order of the keys, from the position on. Both calls may cause
// routes and VRFs to be added and removed. If a VRF is removed or replaced during the walk, the
// walk skips its remaining routes. Returns false as soon as a visit returns false, and true at the
// end. The walk looks its place up by key only after a change of the table; otherwise it steps to
// the next entry.
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
