// The routing layer's side of a table programmer: it holds the routes that are wanted, brings the
// chip in step with them, and knows for each route that is not in hardware why not, and what it
// waits for. What the two kinds of table programmers have in common is here; what is particular to
// one is in a class derived for its path (agent/programmer/AsyncRouteProgrammer.h), by way of
// agent/programmer/SwitchRouteProgrammer.h. Together they are the worked example of a caller's duties.
//
// What holds between two passes:
//  - A route that is in hardware is there exactly as wanted, or its latest change is under way. One
//    change of a route is under way at a time; what changes meanwhile is done when it is through.
//  - A route that cannot be placed as wanted is not in hardware at all: an entry that forwards to
//    yesterday's members would be wrong in both directions.
//  - An update that changes nothing writes nothing.
//
// Order of a change. A new set is placed and the route pointed at it before the old set is let go,
// and the old record is held until the change is through. When the accepting vlan changes the new
// entry is allocated before the old one is released, unless the table has no room for both. When
// other properties of the entry change (its in-use key stays equal) the old one is released first.
//
// No room. With no free group the oldest zombie is purged and the allocation tried again, at most
// as often as there are zombies. If that does not help, the route waits until something is deleted.
// Those who wait go in by the order of arrival, before any route that comes later; only who needs
// no room, since its set is in hardware meanwhile, goes ahead. The platform may get room back
// that it did not give to this agent, and tells nobody; so those who wait are also asked every
// retryInterval, as long as there are any. A route that waits for an entry holds no group.
//
// Work is only marked by calls and notifications; passes on a clock do it, a bounded number of
// routes each. Whoever is notified by a pass may therefore want any route differently, or no more.
// The hardware status entry of a route is published before the route is allocated and withdrawn
// when the route is not in hardware.
//
// Fastdrop entries are placed as routes without outputs are, one for each, and wait, fail and are
// tried again by themselves; forEachRoute() and route() leave them out. Where an interface changes
// sides, from fastdrop to input or back, the entry that leaves it goes before the other comes.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "Qor/Clock.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "agent/programmer/WaitingQueue.h"

namespace Agent {

class RouteProgrammer {
 public:
   using Route = ProgrammedRoute;
   using RouteKey = Route::RouteKey;
   using State = Route::State;

   static constexpr Qor::U32 routesPerPass = 512;
   static constexpr Qor::Seconds retryInterval = 10;

   struct Counters {
      Qor::U64 resurrections = 0;  // zombies that a route brought back
      Qor::U64 purges = 0;         // zombies given up for room
      Qor::U64 failedWrites = 0;   // changes whose writes failed
      Qor::U64 unchanged = 0;      // updates that changed nothing
      Qor::U64 refusals = 0;       // times a route had to wait for room

      void add(Counters const& other);
   };

   virtual ~RouteProgrammer();
   RouteProgrammer(RouteProgrammer const&) = delete;
   RouteProgrammer& operator=(RouteProgrammer const&) = delete;

   // Wants a route, or wants it differently. Takes effect in the next pass.
   void routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute wanted);
   // Wants it no more; nothing happens for a route that is not wanted.
   void routeDel(L3::VrfName const& vrf, RouteKey const& key);
   // Routes that wait for this VRF's status try again.
   void vrfReady(L3::VrfName const& vrf);

   // After a restart, until all routes have been told. A route whose entry is found on the chip
   // queues behind nobody: what it needs may be there, too. Others get no more than what is free
   // between them, lest they take over what those still come for, and who waits for room does so
   // until the end of it.
   struct Recovery {
      std::function<bool(Route const&)> found;  // by its target
      std::array<Qor::U32, tables> free{};      // by Table
   };
   bool recovering() const { return recovery_.has_value(); }
   void recoveryIs(Recovery recovery) { recovery_ = std::move(recovery); }
   // All have been told: those who wait try again in the next pass.
   void recoveryDone() {
      recovery_.reset();
      tryAgain();
   }
   // There may be room that nobody has announced: those who wait try again.
   void tryAgain();

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

   // Where a route stands in line for room; nothing for one that does not.
   struct Place {
      Table table;
      std::size_t before;   // how many are served first
      std::size_t waiting;  // in this line, the route included
   };
   std::optional<Place> placeInLine(Route const& route) const;

   Qor::U32 routes() const { return wantedRoutes_; }
   Qor::U32 waiting() const;  // how many stand in a queue for room
   Counters const& counters() const { return counters_; }
   // Whether all is done that can be done: nothing marked, nothing under way, and nobody who waits
   // has still to be asked.
   bool settled() const { return lookedAtAll() && programming_ == 0 && !someMayTry(); }
   // Whether no route is marked: all have been placed, or refused, as they are wanted.
   bool lookedAtAll() const { return work_.empty(); }

 protected:
   using RoutePtr = Qor::Ptr<Route>;

   // Both are held. A derived class calls releaseAll() in its destructor.
   RouteProgrammer(Qor::Ptr<MrouteLib::MrouteTableColl> tableColl,
                   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> mfibHwStatus);

   // ---- What a path does. Where a route is given, it has a target, but in dropChange(). ----

   // A route for the table, of the class that the path keeps its own part in.
   virtual RoutePtr newRoute(L3::VrfName const& vrf, RouteKey const& key,
                             Bridging::VlanIdOrNone fastdropVlan);
   // What the target takes of the chip: a group, and an entry in this table.
   virtual bool needsGroup(Route const&) const { return true; }
   virtual std::optional<Table> entryTable(Route const& route) const = 0;
   // The record for the target's set, which is this object: one that is shared, a zombie's, or a
   // new one; null when there is no group for it. Asked again after a zombie was given up.
   virtual MrouteLib::MtableOifSetPtr newRecord(Route& route, MrouteLib::OifSetPtr const& set) = 0;
   // An entry for the target, which will be pointed at the record; null if it needs no group.
   struct Entry {
      MrouteLib::RouteHandle handle;     // invalid: there was none to be had, and
      State whyNot = State::inHardware;  // what that makes of the route: it waits, or has failed
      Table table = Table::entry;        // otherwise where it is
   };
   virtual Entry newEntry(Route& route, MrouteLib::MtableOifSetPtr const& record) = 0;
   // Points the entry at the record: the route has both, perhaps since before.
   virtual void point(Route& route) = 0;
   // Looks how the change stands: calls changeDone() when all is written, and sees to it that the
   // route is marked when there is news otherwise. Called once the change is begun, and for a
   // marked route whose change is under way. A path whose operations are through at once has
   // nothing to look at.
   virtual void checkChange(Route& route) { changeDone(route); }
   // Forgets the change under way: the route leaves the hardware, or what was begun is not gone
   // through with. Called before anything of the route is deleted.
   virtual void dropChange(Route&) {}
   // At the end of a pass that changed something.
   virtual void commit() {}
   virtual void deleteEntry(MrouteLib::RouteHandle handle) = 0;
   // Whether there is a record in use for this very object, zombies included, that may be shared;
   // no value when there is none.
   virtual std::optional<bool> sharable(MrouteLib::OifSetPtr const& set) const = 0;
   virtual Qor::U32 zombies() const = 0;
   virtual void purgeOldestZombie() = 0;  // there is one
   // Why a route in this state, which is neither marked nor in hardware, is not in hardware.
   friend class ProgrammedRoute;
   virtual Qor::String reason(Route const& route) const = 0;

   // ---- What a path tells. ----

   // The route is to be looked at in the next pass.
   void mark(Route& route);
   // The table may have got room: those who wait for it try again in the next pass.
   void roomIs(Table table);
   void changeDone(Route& route);
   // A write has failed that is not one of a change under way.
   void writeFailed() { ++counters_.failedWrites; }
   // A write of the change has failed; drops the change and returns how many placements of what is
   // wanted have failed by now.
   Qor::U32 countFailure(Route& route);
   // Behind a failed change. The route goes back to the record it was at, if its entry is known to
   // be there, and leaves the hardware otherwise; then it is marked for another placement.
   void placeAgain(Route& route);
   // Takes it out of hardware until it changes.
   void giveUp(Route& route);
   // Keeps the set's object from being handed out again.
   void retire(MrouteLib::OifSetPtr const& set) { tableColl_->oifSetRetire(*set); }
   // Takes everything that was placed out again.
   void releaseAll();

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

   bool want(L3::VrfName const& vrf, EntryKey const& key, WantedRoute wanted);
   void wantNoMore(L3::VrfName const& vrf, EntryKey const& key);
   RoutePtr find(L3::VrfName const& vrf, EntryKey const& key) const;
   void schedulePass();
   void runPass();
   bool someMayTry() const;
   Qor::U32 wake(WaitingQueue& queue, Qor::U32 budget);
   static State stateFor(Table table) {
      return static_cast<State>(static_cast<int>(State::waitingGroup) + static_cast<int>(table));
   }
   WaitingQueue& queue(Table table) { return waiting_[static_cast<std::size_t>(table)]; }
   bool mustQueue(Route& route);
   std::optional<Table> keptForOthers(Route const& route);
   void queueUp(Route& route, Table table);
   void wait(Route& route, State state);
   void waitNoMore(Route& route);
   void handleRetry();
   void markThoseWhoShare(MrouteLib::PortVlanSet const& set);

   void process(Route& route);
   void remove(Route& route);
   void place(Route& route);
   void placeAnew(Route& route);
   struct Leaving;
   bool replaceEntry(Route& route, MrouteLib::MtableOifSetPtr const& record, Leaving& leaving);
   State allocateEntry(Route& route, MrouteLib::MtableOifSetPtr const& record);
   bool mustStandBack(Route const& route) const;
   void clearTheWay(Route const& route);
   void markFastdrops(Route const& route);
   void pointAt(Route& route, MrouteLib::MtableOifSetPtr record);
   MrouteLib::MtableOifSetPtr allocateRecord(Route& route);
   MrouteLib::OifSetPtr sharedOifSet(MrouteLib::PortVlanSet const& set);
   void leaveEntry(MrouteLib::RouteHandle handle, Table table);
   void leaveRecord(MrouteLib::MtableOifSetPtr& record);
   void release(Route& route);
   void publish(Route const& route);
   void withdraw(Route const& route);
   void stateIs(Route& route, State state);

   Qor::Ptr<MrouteLib::MrouteTableColl> const tableColl_;
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const mfibHwStatus_;
   std::map<L3::VrfName, RouteTable> vrfs_;
   std::deque<RoutePtr> work_;
   std::array<WaitingQueue, tables> waiting_;  // by Table
   Qor::U32 wantedRoutes_ = 0;
   Qor::U32 programming_ = 0;
   bool wrote_ = false;  // in this pass
   std::optional<Recovery> recovery_;
   Counters counters_;
   Qor::Ptr<Qor::Clock> const clock_;
   std::unique_ptr<QorClock> clockReactor_;
   Qor::Ptr<Qor::Clock> const retry_;  // finite while a route waits for room
   std::unique_ptr<QorClock> retryReactor_;
};

}  // namespace Agent
