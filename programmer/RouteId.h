// The name of a route: its VRF and its key.
#pragma once

#include <compare>
#include <string>

#include "L3/VrfName.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace VelMroute {

struct RouteId {
   L3::VrfName vrf;
   Routing::Multicast::Fib::IpGenRouteKey key;

   friend bool operator==(RouteId const&, RouteId const&) = default;
   friend auto operator<=>(RouteId const&, RouteId const&) = default;
   // "vrf default (10.0.0.2, 239.1.1.1)"
   std::string toString() const { return "vrf " + vrf.name() + " " + key.pretty(); }
};

struct RouteIdHash {
   std::size_t operator()(RouteId const& id) const { return id.key.hash() ^ id.vrf.hash(); }
};

}  // namespace VelMroute
