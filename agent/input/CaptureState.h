// What a capture says in the end: a plain model of the tables it describes, independent of how
// routes are programmed. What the switch forwards is compared with it.
//
// A route event replaces its route or removes it, a snapshot replaces the tables it is about, a
// link event replaces the state of its link. That is all: a link that goes down takes no route with
// it, since the daemon that owns the routes says what becomes of them. An interface that is renamed
// is the new name with the same index; the routes keep the name they were announced with.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/input/CaptureEvent.h"

namespace Agent {

struct RouteId {
   L3::VrfName vrf;
   Routing::Multicast::Fib::IpGenRouteKey key;

   friend bool operator==(RouteId const&, RouteId const&) = default;
   friend auto operator<=>(RouteId const&, RouteId const&) = default;
   std::string toString() const;  // "vrf default (10.0.0.2, 239.1.1.1)"
};

struct RouteState {
   Lnet::IntfId iif;                // empty: none is known
   std::vector<Lnet::IntfId> oifs;  // in order, each once
   bool resolved = false;

   friend bool operator==(RouteState const&, RouteState const&) = default;
   std::string toString() const;  // "iif rtr0, oifs rtr1 rtr2", "unresolved, iif none, oifs none"
};

using RouteStates = std::map<RouteId, RouteState>;

// One route that two tables do not agree about.
struct RouteDifference {
   RouteId id;
   std::optional<RouteState> expected;  // absent: there should be no such route
   std::optional<RouteState> actual;    // absent: there is no such route

   // "vrf default (10.0.0.2, 239.1.1.1): expected iif rtr0, oifs rtr1, got no route"
   std::string toString() const;
};

// In the order of the routes; empty when the tables are equal.
std::vector<RouteDifference> differences(RouteStates const& expected, RouteStates const& actual);

class CaptureState {
 public:
   struct Link {
      std::uint32_t ifindex = 0;
      Interface::IntfOperStatus status{};
      bool adminUp = false;
   };

   void apply(CaptureEvent const& event);

   RouteStates const& routes() const { return routes_; }
   // Of the links that were announced; a deleted one stays, as notPresent.
   std::map<Lnet::IntfId, Link> const& links() const { return links_; }

 private:
   void apply(MrouteEvent const& event);
   void apply(LinkEvent const& event);
   void apply(SnapshotEvent const& event);

   RouteStates routes_;
   std::map<Lnet::IntfId, Link> links_;
   std::map<std::uint32_t, Lnet::IntfId> linkNames_;  // the latest of each index
};

}  // namespace Agent
