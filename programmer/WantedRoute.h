// A route as its owner wants it, in names: the programmer resolves the interfaces to vlans and the
// VRF to its number, and follows changes of both.
#pragma once

#include <vector>

#include "Wisp/Multicast/Fib/RpaIndex.h"
#include "programmer/Outputs.h"

namespace VelMroute {

struct WantedRoute {
   // The interface at which packets of the route arrive. Empty with noRpf, unless the outputs have
   // a backup: then `iif` names the interface whose failure causes the reroute, unless
   // `protectedIntf` does.
   Lnet::IntfId iif = {};
   // Null: packets go nowhere, and are dropped.
   OutputsPtr outputs = {};
   // The interface whose failure replaces the outputs by their backup; empty: `iif`. An output is
   // protected with it, by a backup that has another interface in its place.
   Lnet::IntfId protectedIntf = {};
   // Packets that arrive at one of these interfaces instead are dropped in hardware, and watched
   // for activity. The order has no meaning.
   std::vector<Lnet::IntfId> fastdrop = {};
   // The route is a boundary entry: packets are bridged in the vlan of `iif`.
   bool bridge = false;
   // The route accepts packets from every interface.
   bool noRpf = false;
   Wisp::Multicast::Fib::RpaIndex rpaId = {};

   friend bool operator==(WantedRoute const& a, WantedRoute const& b);
};

// Raises RangeException for a route that no chip takes:
//   "VelMroute::WantedRoute::iif with noRpf not allowed"       (without a backup)
//   "VelMroute::WantedRoute::iif empty not allowed"            (without noRpf, or with a backup)
//   "VelMroute::WantedRoute::protectedIntf without backup not allowed"
//   "VelMroute::WantedRoute::bridge with noRpf not allowed"
//   "VelMroute::WantedRoute::fastdrop empty interface not allowed"
//   "VelMroute::WantedRoute::fastdrop of the input not allowed"
void checkWanted(WantedRoute const& wanted);

}  // namespace VelMroute
