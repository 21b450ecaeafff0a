// A route as the routing layer wants it.
#pragma once

#include <vector>

#include "Bridging/VlanId.h"
#include "Lnet/IntfId.h"
#include "MrouteLib/PortVlanSet.h"
#include "Wisp/Multicast/Fib/RpaIndex.h"

namespace Agent {

// Traffic of a route that comes in over this interface is dropped in hardware, by an entry of its
// own, and watched for activity.
struct Fastdrop {
   Lnet::IntfId intfId;
   Bridging::VlanIdOrNone vlan;  // its internal vlan: not none, and not the route's accepting one

   bool operator==(Fastdrop const&) const = default;
};

struct WantedRoute {
   Lnet::IntfId acceptingIntfId;  // empty: none in particular
   Bridging::VlanIdOrNone acceptingVlan;
   MrouteLib::PortVlanSet set;  // its type says what kind of route it is
   bool bridgeAction = false;
   bool noRpf = false;  // accepts from anywhere: no accepting interface, and no accepting vlan
   Wisp::Multicast::Fib::RpaIndex rpaId;
   std::vector<Fastdrop> fastdrop;  // each vlan once

   bool operator==(WantedRoute const&) const = default;
};

}  // namespace Agent
