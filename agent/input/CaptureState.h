// The tables that a capture describes, at its end. This model is independent of the programming of
// routes, and the forwarding of the switch is compared with it.
//
// A route event replaces or removes its route, a snapshot replaces the tables of its scopes, and a
// link event replaces the state of its link. A link that goes down removes no route, because the
// routing daemon decides about its routes. A renamed interface keeps its index, and the routes keep
// the interface name of their announcement.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/input/CaptureEvent.h"
#include "programmer/RouteId.h"

namespace Agent {

using VelMroute::RouteId;

struct RouteState {
   Lnet::IntfId iif;                // empty: none is known
   std::vector<Lnet::IntfId> oifs;  // in order, each once
   bool resolved = false;

   friend bool operator==(RouteState const&, RouteState const&) = default;
   std::string toString() const;  // "iif rtr0, oifs rtr1 rtr2", "unresolved, iif none, oifs none"
};

using RouteStates = std::map<RouteId, RouteState>;

// A route that differs between two tables.
struct RouteDifference {
   RouteId id;
   std::optional<RouteState> expected;  // absent: no such route is expected
   std::optional<RouteState> actual;    // absent: there is no such route

   // "vrf default (10.0.0.2, 239.1.1.1): expected iif rtr0, oifs rtr1, got no route"
   std::string toString() const;
};

// Compares two tables. The differences are in the order of the routes, and none if the tables are
// equal.
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
   // The announced links. A deleted link stays here as notPresent.
   std::map<Lnet::IntfId, Link> const& links() const { return links_; }

 private:
   void apply(MrouteEvent const& event);
   void apply(LinkEvent const& event);
   void apply(SnapshotEvent const& event);

   RouteStates routes_;
   std::map<Lnet::IntfId, Link> links_;
   std::map<std::uint32_t, Lnet::IntfId> linkNames_;  // the latest name of each ifindex
};

}  // namespace Agent
