// The groups and entries that a platform finds on its chip when an agent starts again, as the
// programmer needs them. The platform gives a found group or entry to the first request that it
// satisfies; the programmer says when no further request can come.
#pragma once

#include <optional>
#include <vector>

#include "Bridging/VlanId.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"
#include "Vel/VrfId.h"
#include "programmer/RouteStatus.h"

namespace VelMroute {

class Restart {
 public:
   struct Route {
      Vel::VrfId vrfId;
      Routing::Multicast::Fib::IpGenRouteKey key;
      Bridging::VlanIdOrNone vlan;
      bool bridge = false;
   };

   virtual ~Restart() = default;

   // The found entries. Entries that send nowhere stand first: of several entries with one key these
   // are the fastdrop entries, and the last entry of a key determines the published input.
   virtual std::vector<Route> found() const = 0;
   // Whether the entry is found and no request has taken it yet.
   virtual bool isFound(Route const& route) const = 0;
   // The free places of the table when the agent starts; nothing if the platform does not know. A
   // route that was not found may take one of these; the others wait for the end of the resync.
   virtual std::optional<Qor::U32> free(Table table) const = 0;
   // Removes the found groups and entries that no request has taken. Returns false if some remain,
   // because writes have to complete before; the programmer then calls again.
   virtual bool sweep() = 0;
   // The numbers of found groups and entries that requests have taken, and that were swept.
   virtual Qor::U64 adopted() const = 0;
   virtual Qor::U64 swept() const = 0;
};

}  // namespace VelMroute
