// The programmer's record of a route, or of one of its fastdrop entries.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "Qor/Pool.h"
#include "programmer/RouteTable.h"
#include "programmer/internal/Wish.h"

namespace VelMroute {

class ProgrammedRoute;
class ProgrammerWork;
class WaitingLine;
using RoutePtr = Qor::Ptr<ProgrammedRoute>;

// The change of a route that is under way: at most two transactions, of which it watches the first
// that is pending.
class RouteChange final : public Hux::Xact::Notifiee {
 public:
   RouteChange(ProgrammerWork& work, ProgrammedRoute& route) : work_(work), route_(route) {}
   void onState() override;

 private:
   ProgrammerWork& work_;
   ProgrammedRoute& route_;

 public:
   // The record of the set that is being placed, before the entry points at it. Dropped behind the
   // transactions.
   MrouteLib::MtableOifSetPtr fresh;
   Hux::XactPtr groupWrite;
   Hux::XactPtr pointing;
};

class ProgrammedRoute final : public Qor::RefCounted, public Qor::Pooled {
 public:
   // The routes of one VRF, by key.
   struct Vrf {
      L3::VrfName name;
      Qor::HashMap<RouteKey, RoutePtr> routes;
   };

   ProgrammedRoute(ProgrammerWork& programmerWork, Vrf& vrfOf, RouteKey const& routeKey,
                   ProgrammedRoute* ownerOf)
         : work(programmerWork), vrf(vrfOf), owner(ownerOf), key(routeKey) {}

   bool isFastdrop() const { return owner != nullptr; }

   ProgrammerWork& work;
   Vrf& vrf;
   // The route of a fastdrop entry, null for a route. The route lives as long as its entries.
   ProgrammedRoute* const owner;
   std::vector<RoutePtr> fastdrops;  // the fastdrop entries of a route
   RouteKey const key;

   WishPtr wish;    // null when the route is not wanted any longer
   WishPtr target;  // the wish in placement, at `at` and in the VRF `vrfId`
   PlacementPtr at;
   Vel::VrfId vrfId;
   RouteTable::Needs needs;

   WishPtr placed;  // the wish, the vlan and the VRF of the entry; null without a placement
   Bridging::VlanIdOrNone placedVlan;
   Vel::VrfId placedVrf;
   Table table = Table::entry;  // of the entry
   MrouteLib::RouteHandle handle;
   MrouteLib::MtableOifSetPtr record;    // of the entry, once the change is complete
   MrouteLib::MtableOifSetPtr previous;  // held until the entry has left it
   std::unique_ptr<RouteChange> change;
   std::unique_ptr<Qor::String> trouble;  // why the route failed

   Qor::Seconds since = 0;  // the time of the last change of the state
   Qor::U64 resync = 0;     // the resync in which the route was named last
   Qor::U32 attempts = 0;   // placements of the wish whose writes failed
   RouteState state = RouteState::queued;
   bool marked = false;     // in the queue of the passes
   bool confirmed = false;  // the entry has been written
   bool stuck = false;      // the deletion of the entry threw, and the entry is still there
   bool published = false;
   bool listed = false;   // among the changes for the owner
   bool retried = false;  // among the routes that are tried again
   WaitingLine* waitingIn = nullptr;
   Qor::U64 arrival = 0;      // the place there
   Qor::U32 waitingHash = 0;  // of the set it waits with
   std::optional<Table> waitsFor;

 private:
   ~ProgrammedRoute() override = default;
};

}  // namespace VelMroute
