// The programmer's record of a route, or of one of its fastdrop entries.
//
// A table has very many routes, of which few change at a time. The record of a route at rest is
// therefore two cache lines; all other properties are in RouteWork, which a route has only while it
// changes, waits, has failed, or belongs to fastdrop entries.
#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Qor/ObjectMap.h"
#include "Qor/Pool.h"
#include "programmer/RouteTable.h"
#include "programmer/internal/Wish.h"

namespace VelMroute {

class ProgrammedRoute;
class ProgrammerWork;
class WaitingLine;
using RoutePtr = Qor::Ptr<ProgrammedRoute>;
using RouteStatusPtr = Qor::Ptr<Routing::Multicast::Fib::Hardware::RouteStatus>;

// The writes of a change, of a group and of an entry.
struct RouteWrites {
   MrouteLib::MtableOifSetPtr previous = {};  // held until the entry has left it
   Hux::XactPtr group = {};                   // null: the group is written
   Hux::XactPtr pointing = {};
};

// A change of a route that waits for its writes. Watches the first one that is pending.
class RouteChange final : public Hux::Xact::Notifiee {
 public:
   RouteChange(ProgrammerWork& work, ProgrammedRoute& route) : work_(work), route_(route) {}
   void onState() override;

   RouteWrites writes;

 private:
   ProgrammerWork& work_;
   ProgrammedRoute& route_;
};

// The properties of a route that is not at rest.
struct RouteWork : Qor::Pooled {
   static void* operator new(std::size_t size) { return allocatePooled(size); }

   // Whether the route needs this no longer.
   bool idle() const {
      return !change && !owner && fastdrops.empty() && !waitingIn && !at && attempts == 0 &&
             trouble.empty();
   }

   std::optional<RouteChange> change;
   // The route of a fastdrop entry, null for a route. The route lives as long as its entries.
   ProgrammedRoute* owner = nullptr;
   Lnet::IntfId intf;                // the interface of a fastdrop entry
   std::vector<RoutePtr> fastdrops;  // the fastdrop entries of a route
   PlacementPtr at;                  // with which the route waits or failed
   Qor::String trouble;              // why the route failed
   WaitingLine* waitingIn = nullptr;
   Qor::U64 arrival = 0;      // the place there
   Qor::U32 waitingHash = 0;  // of the set it waits with
   Qor::U32 attempts = 0;     // placements of the wish whose writes failed
};

class ProgrammedRoute final : public Qor::RefCounted, public Qor::Pooled {
 public:
   struct Vrf;

   ProgrammedRoute(Vrf& vrfOf, RouteKey const& routeKey) : key(routeKey), vrf(vrfOf) {}

   RouteWork& work() {
      if (!work_) work_ = std::make_unique<RouteWork>();
      return *work_;
   }
   RouteWork const* workIfAny() const { return work_.get(); }
   RouteWork* workIfAny() { return work_.get(); }
   void dropIdleWork() {
      if (work_ && work_->idle()) work_.reset();
   }

   RouteChange* change() { return work_ && work_->change ? &*work_->change : nullptr; }
   ProgrammedRoute* owner() const { return work_ ? work_->owner : nullptr; }
   bool isFastdrop() const { return owner() != nullptr; }
   // The route of a fastdrop entry, and otherwise the route itself.
   ProgrammedRoute& own() {
      ProgrammedRoute* const of = owner();
      return of ? *of : *this;
   }
   // The fastdrop entries of a route.
   std::vector<RoutePtr> const& fastdrops() const {
      static std::vector<RoutePtr> const none;
      RouteWork const* const work = work_.get();
      if (!work) return none;
      return work->fastdrops;
   }
   WaitingLine* waitingIn() const { return work_ ? work_->waitingIn : nullptr; }

   RouteState state = RouteState::queued;
   Table table = Table::entry;  // of the entry
   RouteKey const key;
   Vrf& vrf;

   WishPtr wish;    // null when the route is not wanted any longer
   WishPtr placed;  // the wish, the vlan and the VRF of the entry; null without a placement
   MrouteLib::MtableOifSetPtr record;  // of the entry, once the change is complete
   // The published status; null while the route is not published. A fastdrop entry has the status
   // of its route.
   RouteStatusPtr published;

 private:
   ~ProgrammedRoute() override = default;

   std::unique_ptr<RouteWork> work_;

 public:
   Qor::Seconds since = 0;  // the time of the last change of the state
   MrouteLib::RouteHandle handle;
   Vel::VrfId placedVrf;
   Qor::U32 resync = 0;  // the resync in which the route was named last
   Bridging::VlanIdOrNone placedVlan;
   bool marked : 1 = false;     // in the queue of the passes
   bool confirmed : 1 = false;  // the entry has been written
   bool stuck : 1 = false;      // the deletion of the entry threw, and the entry is still there
   bool refused : 1 = false;    // the path takes no such route
   bool listed : 1 = false;     // among the changes for the owner
   bool retried : 1 = false;    // among the routes that are tried again
};
static_assert(sizeof(ProgrammedRoute) <= 2 * Qor::cacheLine);

// The routes of one VRF.
struct ProgrammedRoute::Vrf {
   Vrf(ProgrammerWork& programmerWork, L3::VrfName vrf)
         : work(programmerWork), name(std::move(vrf)) {}
   Vrf(Vrf const&) = delete;
   Vrf& operator=(Vrf const&) = delete;

   // The route of the key; null if there is none.
   ProgrammedRoute* find(RouteKey const& key) const {
      auto const entry = routes.find(key);
      return entry ? entry->second.get() : nullptr;
   }

   ProgrammerWork& work;
   L3::VrfName const name;
   // The number of the VRF in the hardware, of use while no VRF has changed since it was read.
   std::optional<Vel::VrfId> id;
   Qor::U64 idEpoch = 0;
   Qor::ObjectMap<ProgrammedRoute, &ProgrammedRoute::key> routes;
};

}  // namespace VelMroute
