// The events of a capture.
//
// An event states facts about one moment: the full new state of a multicast route, the state of a
// link, or a whole table. There is no "add" and no "change": a route event that is not a deletion
// replaces the state of its route, and captures often repeat a state without a change.
#pragma once

#include <cstdint>
#include <variant>
#include <vector>

#include "Interface/IntfOperStatus.h"
#include "L3/VrfName.h"
#include "Lnet/IntfId.h"
#include "Routing/Multicast/Fib/IpGenRouteKey.h"

namespace Agent {

struct CaptureTime {
   // Seconds since the first time stamp of the input; never goes back from event to event.
   double time = 0;
   // The stamp itself, microseconds since 1970 with the written date and time taken as UTC.
   // Meaningful only if `stamped`; an event without a stamp has the time of the one before it.
   std::int64_t unixMicroseconds = 0;
   bool stamped = false;
};

// The VRF comes from the routing table. The table that the kernel uses by default is the VRF
// "default"; any other table gives its name or number to its VRF.
struct MrouteEvent : CaptureTime {
   bool deleted = false;  // the route is gone; all members but vrf and key are its last state
   L3::VrfName vrf;
   Routing::Multicast::Fib::IpGenRouteKey key;  // source and group as host prefixes; (*,G) has the
                                                // unspecified source
   Lnet::IntfId iif;  // empty: no input interface is known, so the route accepts no packet
   // False: a packet has arrived without a route, and the kernel waits for a route. Until then it
   // forwards no packet of this source and group.
   bool resolved = false;
   std::vector<Lnet::IntfId> oifs;  // in the order of the capture; a name may occur twice
};

struct LinkEvent : CaptureTime {
   bool deleted = false;  // the interface is gone; status is notPresent
   std::uint32_t ifindex = 0;
   Lnet::IntfId intf;
   Interface::IntfOperStatus status{};
   bool adminUp = false;  // the flag UP: the link is enabled, which does not say that it works
};

// The whole state of the routing tables in `scopes` at one moment. A route of these tables that is
// not in `routes` does not exist. The snapshot does not change other tables, so a snapshot without
// scopes has no effect.
struct SnapshotEvent : CaptureTime {
   struct Scope {  // one table: the multicast routes of one address family in one VRF
      Lnet::IpFamily family = Lnet::IpFamily::none;
      L3::VrfName vrf;

      friend bool operator==(Scope const&, Scope const&) = default;
   };
   std::vector<Scope> scopes;  // each once
   // In the order of the list. The routes share the snapshot's time. A route may occur twice,
   // because the kernel lists its table in pieces; the later occurrence is the newer state.
   std::vector<MrouteEvent> routes;

   bool covers(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) const {
      for (Scope const& scope : scopes) {
         if (scope.family == key.group().family() && scope.vrf == vrf) return true;
      }
      return false;
   }
};

using CaptureEvent = std::variant<MrouteEvent, LinkEvent, SnapshotEvent>;

inline CaptureTime& timeOf(CaptureEvent& event) {
   return std::visit([](auto& e) -> CaptureTime& { return e; }, event);
}
inline CaptureTime const& timeOf(CaptureEvent const& event) {
   return std::visit([](auto const& e) -> CaptureTime const& { return e; }, event);
}

}  // namespace Agent
