// The routing layer's side of the asynchronous programmer: it holds the routes that are wanted,
// brings the chip in step with them, and knows for each route that is not in hardware why not, and
// what it waits for. It is the worked example of the duties in Vel/VelAsyncMrouteSwitch.h.
//
// What holds between two passes:
//  - A route that is in hardware is there exactly as wanted, or its latest change is under way. One
//    change of a route is under way at a time; what changes meanwhile is done when it is through.
//  - A route that cannot be placed as wanted is not in hardware at all: an entry that forwards to
//    yesterday's members would be wrong in both directions.
//  - An update that changes nothing writes nothing.
//
// Order of a change. A new set is placed and the route pointed at it before the old set is let go,
// and the old record is held until the new transaction has succeeded. When the accepting vlan
// changes the new entry is allocated before the old one is released, unless the table has no room
// for both. When other properties of the entry change (its in-use key stays equal) the old one is
// released first.
//
// No room. With no free group the oldest zombie is purged and the allocation tried again, at most
// as often as there are zombies. If that does not help, the route waits until something is deleted.
// Those who wait go in by the order of arrival, before any route that comes later; only who needs
// no room, since its set is in hardware meanwhile, goes ahead. Nothing polls.
//
// Failed writes. When a transaction fails, the route's record is marked dirty and let go, its oif
// set is retired from sharing, and the route is placed anew, up to maxAttempts times for one wanted
// state; then it stays out of hardware, with the transaction's reason, until it changes.
//
// Work is only marked by calls and notifications; passes on a clock do it, a bounded number of
// routes each. Whoever is notified by a pass may therefore want any route differently, or no more.
// The hardware status entry of a route is published before the route is allocated and withdrawn
// when the route is not in hardware.
//
// Fastdrop entries are placed as routes without outputs are, one for each, and wait, fail and are
// tried again by themselves; forEachRoute() and route() leave them out.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "Qor/Clock.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Vel/VelAsyncMrouteSwitch.h"

namespace Agent {

// Traffic of a route that comes in over this interface is dropped in hardware, by an entry of its
// own, and watched for activity.
struct Fastdrop {
   Lnet::IntfId intfId;
   Bridging::VlanIdOrNone vlan;  // its internal vlan: not none, and not the route's accepting one

   bool operator==(Fastdrop const&) const = default;
};

// A route as the routing layer wants it.
struct WantedRoute {
   Lnet::IntfId acceptingIntfId;  // empty: none in particular
   Bridging::VlanIdOrNone acceptingVlan;
   MrouteLib::PortVlanSet set;  // its type says what kind of route it is
   bool bridgeAction = false;
   Wisp::Multicast::Fib::RpaIndex rpaId;
   std::vector<Fastdrop> fastdrop;  // each vlan once

   bool operator==(WantedRoute const&) const = default;
};

class RouteProgrammer {
 public:
   using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;

   static constexpr Qor::U32 maxAttempts = 3;  // placements of one wanted state
   static constexpr Qor::U32 routesPerPass = 512;

   enum class State {
      marked,        // a change waits for the next pass
      programming,   // transactions under way
      inHardware,    // done
      waitingGroup,  // no free multicast id; waits for a deletion
      waitingEntry,  // no free route entry; waits for a deletion
      waitingVrf,    // the VRF has no hardware status
      failed,        // writes failed maxAttempts times; waits for a change of the route
   };

   class Route;

 private:
   using RoutePtr = Qor::Ptr<Route>;
   using WantedPtr = std::shared_ptr<WantedRoute const>;
   using WaitingQueue = std::map<Qor::U64, RoutePtr>;  // by arrival

 public:
   struct Counters {
      Qor::U64 resurrections = 0;  // zombies that a route brought back
      Qor::U64 purges = 0;         // zombies given up for room
      Qor::U64 failedWrites = 0;   // transactions that failed
      Qor::U64 unchanged = 0;      // updates that changed nothing
      Qor::U64 refusals = 0;       // times a route had to wait for room
   };

   // All three are held. Everything the programmer placed is taken out again by its destructor.
   RouteProgrammer(Qor::Ptr<Vel::Mroute::AsyncMrouteSwitch> mrouteSwitch,
                   Qor::Ptr<MrouteLib::MrouteTableColl> tableColl,
                   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);
   ~RouteProgrammer();
   RouteProgrammer(RouteProgrammer const&) = delete;
   RouteProgrammer& operator=(RouteProgrammer const&) = delete;

   // Wants a route, or wants it differently. Takes effect in the next pass.
   void routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute wanted);
   // Wants it no more; nothing happens for a route that is not wanted.
   void routeDel(L3::VrfName const& vrf, RouteKey const& key);
   // Routes that wait for this VRF's status try again.
   void vrfReady(L3::VrfName const& vrf);

   // The wanted route, or null. Valid until the next pass.
   Route const* route(L3::VrfName const& vrf, RouteKey const& key) const;
   // Calls visit(Route const&) for every wanted route, by VRF name; the order within a VRF follows
   // from its history alone. The visitor wants no routes and withdraws none.
   template <class Visit>
   void forEachRoute(Visit const& visit) const {
      for (auto const& [name, table] : vrfs_) {
         for (auto const& [key, r] : table) {
            if (r->wanted() && !r->isFastdrop()) visit(static_cast<Route const&>(*r));
         }
      }
   }

   Qor::U32 routes() const { return wantedRoutes_; }
   // How many stand in a queue for room.
   Qor::U32 waiting() const {
      return static_cast<Qor::U32>(waitingGroup_.size() + waitingEntry_.size());
   }
   Counters const& counters() const { return counters_; }
   // Told of every transaction that a change waits for, when it is begun: what it does, for people.
   using XactObserver = std::function<void(Qor::String const&, Hux::XactPtr const&)>;
   void xactObserverIs(XactObserver observer) { xactObserver_ = std::move(observer); }
   // Whether all is done that can be done: nothing marked, no transaction under way.
   bool settled() const { return work_.empty() && programming_ == 0; }

   // One route and where it stands.
   class Route final : public Qor::RefCounted {
    public:
      Route(RouteProgrammer& programmer, L3::VrfName vrf, RouteKey const& key,
            Bridging::VlanIdOrNone fastdropVlan)
            : programmer_(programmer),
              vrf_(std::move(vrf)),
              key_(key),
              fastdropVlan_(fastdropVlan),
              xactReactor_(*this) {}

      L3::VrfName const& vrf() const { return vrf_; }
      RouteKey const& key() const { return key_; }
      bool isFastdrop() const { return !fastdropVlan_.isNone(); }
      // Null when the route is on its way out.
      WantedRoute const* wanted() const { return wanted_.get(); }
      State state() const { return state_; }
      // Why the route is not in hardware, for people; empty when it is.
      Qor::String reason() const;
      // Where it is placed; invalid and null when it is not.
      MrouteLib::RouteHandle handle() const { return handle_; }
      MrouteLib::MtableOifSetPtr const& record() const { return record_; }
      Qor::U32 attempts() const { return attempts_; }

    private:
      friend class RouteProgrammer;

      // Watches the transaction that the route's change waits for.
      class QorXact final : public Hux::Xact::Notifiee {
       public:
         explicit QorXact(Route& route) : route_(route) {}
         void onState() override { route_.programmer_.mark(route_); }

       private:
         Route& route_;
      };

      ~Route() override = default;

      RouteProgrammer& programmer_;
      L3::VrfName const vrf_;
      RouteKey const key_;
      Bridging::VlanIdOrNone const fastdropVlan_;  // none: the route itself
      WantedPtr wanted_;
      WantedPtr target_;  // what it is being placed as, whatever is wanted meanwhile
      WantedPtr placed_;  // what the entry in hardware stands for
      MrouteLib::RouteHandle handle_;
      MrouteLib::MtableOifSetPtr record_;    // the set the entry points at, once all is written
      MrouteLib::MtableOifSetPtr previous_;  // held until the write of record_ has succeeded
      Hux::XactPtr oifSetXact_;
      Hux::XactPtr ingressXact_;
      QorXact xactReactor_;
      Qor::String8 failure_;
      Qor::U32 attempts_ = 0;
      State state_ = State::marked;
      bool marked_ = false;                // in the work queue
      bool confirmed_ = false;             // a write to this entry has succeeded
      WaitingQueue* waitingIn_ = nullptr;  // the queue it stands in
      Qor::U64 arrival_ = 0;               // its place there
      Qor::U32 waitingHash_ = 0;           // of the set whose group it waits for
   };

 private:
   // A route, or one of its fastdrop entries.
   struct EntryKey {
      RouteKey key;
      Bridging::VlanIdOrNone fastdropVlan;

      Qor::U32 hash() const {
         return Qor::hashFold(Qor::hashMix(key.hash(), fastdropVlan.value()));
      }
      bool operator==(EntryKey const&) const = default;
   };
   using RouteTable = Qor::HashMap<EntryKey, RoutePtr>;

   class QorClock;
   class QorMrouteSwitch;

   bool want(L3::VrfName const& vrf, EntryKey const& key, WantedRoute wanted);
   void wantNoMore(L3::VrfName const& vrf, EntryKey const& key);
   RoutePtr find(L3::VrfName const& vrf, EntryKey const& key) const;
   void mark(Route& route);
   void schedulePass();
   void runPass();
   void process(Route& route);
   void checkChange(Route& route);
   void changeFailed(Route& route);
   void remove(Route& route);
   void place(Route& route);
   bool mustQueue(Route& route);
   bool needsGroup(Route const& route) const;
   void placeAnew(Route& route);
   bool replaceEntry(Route& route, MrouteLib::RouteHandle& leaving);
   bool allocateEntry(Route& route);
   void pointAt(Route& route, MrouteLib::MtableOifSetPtr record);
   MrouteLib::MtableOifSetPtr allocateRecord(Route& route);
   MrouteLib::OifSetPtr sharedOifSet(MrouteLib::PortVlanSet const& set);
   bool purgeOldestZombie();
   void release(Route& route);
   void wait(Route& route, State state);
   void waitNoMore(Route& route);
   void markThoseWhoShare(MrouteLib::PortVlanSet const& set);
   Qor::U32 wake(WaitingQueue& queue, bool& room, Qor::U32 budget);
   void publish(Route const& route);
   void withdraw(Route const& route);
   void stateIs(Route& route, State state);

   Qor::Ptr<Vel::Mroute::AsyncMrouteSwitch> const mrouteSwitch_;
   Qor::Ptr<MrouteLib::MrouteTableColl> const tableColl_;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const mfibHwStatus_;
   std::map<L3::VrfName, RouteTable> vrfs_;
   std::deque<RoutePtr> work_;
   WaitingQueue waitingGroup_;
   WaitingQueue waitingEntry_;
   // The same routes as in waitingGroup_, by the hash of the set that each waits for.
   std::set<std::pair<Qor::U32, Qor::U64>> waitingSets_;
   Qor::U64 lastArrival_ = 0;
   bool groupRoom_ = false;  // a group may have become free since one was refused
   bool entryRoom_ = false;
   Qor::U32 wantedRoutes_ = 0;
   Qor::U32 programming_ = 0;
   Counters counters_;
   XactObserver xactObserver_;
   Qor::Ptr<Qor::Clock> const clock_;
   std::unique_ptr<QorClock> clockReactor_;
   std::unique_ptr<QorMrouteSwitch> switchReactor_;
};

std::ostream& operator<<(std::ostream& os, RouteProgrammer::State state);

}  // namespace Agent
