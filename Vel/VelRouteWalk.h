// Private header: the walk over the routes of the hardware status, for the aging reviews of both
// paths. A walk runs in slices. Its position stays valid while routes and VRFs come and go between
// two slices.
#pragma once

#include <algorithm>

#include "Routing/Multicast/Fib/Hardware/Status.h"

namespace Vel {

// A position in the walk: a route of a VRF, whether or not the route still exists, and its place in
// VrfStatus::route(). The empty VRF name is the beginning.
struct RoutePosition {
   L3::VrfName vrfName;
   Routing::Multicast::Fib::IpGenRouteKey routeKey = {};
   Qor::U32 place = 0;
};

// Calls enterVrf(vrfName) for each VRF, and if that returns true, visit(routeStatus, position) for
// each route of the VRF, from the position on: the VRFs in the order of their names, and the routes
// in the order of their places. The walk begins at the place, or at the route of the position if
// that has an earlier place, as in another table. Both calls may cause routes and VRFs to be added
// and removed. If a VRF is removed or replaced during the walk, the walk skips its remaining
// routes. Returns false as soon as a visit returns false, and true at the end.
template <class EnterVrf, class Visit>
bool walkRoutes(Routing::Multicast::Fib::Hardware::Status const& status, RoutePosition const& from,
                EnterVrf const& enterVrf, Visit const& visit) {
   auto const& vrfs = status.vrfStatus();
   for (auto vrf = vrfs.lowerBound(from.vrfName); vrf != vrfs.end();) {
      RoutePosition at{vrf->first};
      auto const vrfStatus = vrf->second;
      Qor::U64 const changes = vrfs.changes();
      auto const isHere = [&] {
         return vrfs.changes() == changes || status.vrfStatus(at.vrfName) == vrfStatus;
      };
      if (enterVrf(at.vrfName)) {
         auto const& routes = vrfStatus->route();
         auto route = routes.begin();
         if (at.vrfName == from.vrfName) {
            route = routes.from(std::min(from.place, routes.position(from.routeKey).place()));
         }
         for (; route != routes.end() && isHere(); ++route) {
            auto const routeStatus = route->second;
            at.routeKey = routeStatus->key();
            at.place = route.place();
            if (!visit(*routeStatus, at)) return false;
         }
      }
      vrf = vrfs.upperBound(at.vrfName);
   }
   return true;
}

}  // namespace Vel
