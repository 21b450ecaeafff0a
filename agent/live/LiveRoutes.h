// The routes of the kernel on the switch: which of them go into hardware, as wanted routes of the
// programmer, and for which reason the others stay with the CPU.
//
// VRFs. A route is in the VRF of its input interface. Of two routes with the same source and group
// that would go into hardware in one VRF, the one of the table with the lower number does.
//
// Protection. A route that sends to a protected interface is wanted with a backup, in which the
// backup interface has the place of the protected one. If a route sends to several, the first in the
// order of their names is protected. A route that is placed after the failure has the backup
// interface alone, until the interface is restored.
#pragma once

#include <functional>
#include <map>
#include <set>

#include "agent/live/RoutePolicy.h"
#include "agent/switch/Switch.h"

namespace Agent {

class LiveRoutes {
 public:
   struct Known {
      Kernel::Route route;
      RouteDecision decision;
      RouteId id;           // of a route that goes into hardware
      bool wanted = false;  // the switch has the route
   };
   using Routes = std::map<Kernel::RouteKey, Known>;
   using Reroutes = std::map<Lnet::IntfId, Lnet::IntfId>;

   explicit LiveRoutes(RouteSurroundings surroundings) : surroundings_(std::move(surroundings)) {}

   // The VRF of each configured interface; "default" for those that are not named.
   void vrfsAre(std::map<Lnet::IntfId, L3::VrfName> vrfs) { vrfs_ = std::move(vrfs); }
   void reroutesAre(Reroutes reroutes);
   // Called for each route that leaves the hardware, or that goes.
   void onWithdrawn(std::function<void(Kernel::RouteKey const&)> handler) {
      withdrawn_ = std::move(handler);
   }
   // The switch is there from now on, and gets all routes; or, with null, it is gone.
   void switchIs(Switch* theSwitch);

   void routeIs(Kernel::RouteKey const& key, Kernel::Route const& route);
   void routeDel(Kernel::RouteKey const& key);
   // Interfaces, links, rules or protections have changed: decides on all routes again.
   void decideAll();
   // The protected interface has failed. The switch itself reroutes the routes that have a backup.
   void failed(Lnet::IntfId intf);
   // The protected interface works again: its routes leave their rewritten groups. They are without
   // protection until the second call, with `again`.
   void restore(Lnet::IntfId intf, bool again);

   Routes const& routes() const { return routes_; }
   Known const* find(Kernel::RouteKey const& key) const;
   // The routes of the table.
   Qor::U32 count(Qor::U32 table) const;

 private:
   struct Group {
      Lnet::IpGenAddr source, group;

      friend auto operator<=>(Group const&, Group const&) = default;
   };

   L3::VrfName vrfOf(Lnet::IntfId intf) const;
   WantedRoute wantedOf(RouteDecision const& decision) const;
   void place(Known& known);
   void placeAll(Lnet::IntfId output);
   void withdraw(Kernel::RouteKey const& key, Known& known);
   void decideAllOf(Lnet::IpGenAddr const& source, Lnet::IpGenAddr const& group);

   RouteSurroundings const surroundings_;
   std::map<Lnet::IntfId, L3::VrfName> vrfs_;
   Reroutes reroutes_;
   std::function<void(Kernel::RouteKey const&)> withdrawn_;
   std::set<Lnet::IntfId> failed_;     // protected interfaces that are not restored
   std::set<Lnet::IntfId> restoring_;  // protected interfaces whose routes have no protection yet
   Switch* switch_ = nullptr;
   Routes routes_;
   std::map<Group, std::set<Qor::U32>> tablesOf_;
   std::map<Qor::U32, Qor::U32> counts_;  // by table
};

}  // namespace Agent
