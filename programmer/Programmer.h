// Keeps one chip in step with the routes that their owner wants. The owner names routes, interfaces
// and VRFs; the programmer decides on the writes and their order, shares groups between routes,
// queues routes for room, tries again after errors, and knows for each route that is not in
// hardware why not. The library's own duties for callers (Vel/VelAsyncMrouteSwitch.h and
// Vel/VelSyncMrouteSwitch.h) are met here.
//
//    VelMroute::OutputsPool pool;
//    VelMroute::Programmer programmer({.table = VelMroute::asyncRouteTable(
//          {.hooks = hooks, .vrfs = vrfs, .vlans = vlans, .published = status})});
//    programmer.routeIs(vrf, key, {.iif = port1, .outputs = pool.get({port2, port3})});
//    for (;;) {  // the host's own loop
//       wait(programmer.nextDeadline());
//       programmer.runDue();
//    }
//
// Threads and time. One thread, the loop's, makes all calls; other threads pass work to it through
// Qor::Inbox (Qor/Inbox.h). The process has one loop: the clocks are those of
// Qor::activityManager() at construction, and a pass under another manager is an assertion.
//
// Passes. Calls and notifications only mark routes. A pass on a clock does the work: it ends after
// Options::routesPerPass routes or after Options::passBudget seconds, whichever comes first, and
// the next one goes on in the next turn of the loop. A single step of a pass is the change of one
// route, with at most a few hook calls. At most 16,384 changes wait for their transactions at a time;
// further routes are queued until a change is complete. Resyncs, the end and looks at all routes
// after a change of vlans or VRFs are sliced likewise.
//
// Promises, between two passes:
//  - A route in hardware is there exactly as wanted, or its latest change is under way. One change
//    of a route is under way at a time; a later wish follows when that change is complete.
//  - A route that cannot be placed as wanted is not in hardware at all: an entry that forwards to
//    earlier members would be wrong in both directions.
//  - A wish that changes nothing writes nothing.
//  - Make before break: a new set is placed and the entry pointed at it before the old set is let
//    go. When the input vlan changes because the input does, the new entry is allocated before the
//    old one is deleted, unless the table has no room for both. The old entry is deleted first if
//    another property of it changes, or if the vlan or the VRF is renumbered.
//  - Without a free group the zombie that would expire next is given up, and the allocation is
//    tried again. Routes that wait for room go in by the order of arrival; a route whose set comes
//    into hardware needs no room and goes ahead. A route that waits for an entry holds no group.
//    All lines are asked again every Options::retry seconds, since a platform may get room back
//    without a notification.
//  - A hook or a listener that throws fails the route of this step alone: its allocations are
//    undone, it leaves the hardware, its reason names the hook, and it is tried again after
//    Options::retry. If the deletion of its entry throws and the table programmer still has the
//    entry, the route keeps the entry and the group until a later deletion succeeds. Errors from
//    the reactors' own work (reviews, reroutes) reach the caller of runDue().
//  - The published status of a route stands while a chip of the same hardware status has the route
//    in hardware or is placing it. The programmers of several chips that share a status count
//    their publications, so a chip without room does not withdraw another chip's route. A status
//    that others made is never removed.
//
// Catch-all routes of both address families have one in-use key, so the table programmer cannot
// tell them apart: at most one of them should be wanted in a VRF.
//
// A VRF or a vlan that comes, goes or is renumbered places the routes concerned again: without its
// VRF or one of its vlans a route leaves the hardware and waits.
#pragma once

#include <functional>
#include <memory>

#include "IntfVlanId/Table.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "programmer/Restart.h"
#include "programmer/RouteTable.h"
#include "programmer/WantedRoute.h"

namespace VelMroute {

class ProgrammedRoute;
class ProgrammerWork;

// The programmer's record of a wanted route, without copies. Valid until the next call of the
// programmer that is not const, or the next turn of the loop.
class RouteView {
 public:
   L3::VrfName const& vrf() const;
   RouteKey const& key() const;
   WantedRoute const& wanted() const;
   RouteState state() const;
   // As RouteStatus::reason.
   Qor::String reason() const;
   Qor::Seconds since() const;
   Qor::U32 failures() const;
   // The entry of the route; invalid without one.
   MrouteLib::RouteHandle handle() const;
   // The record that the entry points at, or will when the present change is complete; null without
   // one. A caller that keeps the record keeps its group in use.
   MrouteLib::MtableOifSetPtr const& record() const;
   // The input vlan and the set of the present wish; none and null while a vlan is missing.
   Bridging::VlanIdOrNone vlan() const;
   MrouteLib::PortVlanSet const* set() const;
   // Where the route stands in line for room; nothing for a route that does not wait for room.
   struct Place {
      Table table;
      std::size_t before;   // the number of routes in front
      std::size_t waiting;  // all routes in this line
   };
   std::optional<Place> place() const;
   RouteStatus status() const;

   // Two views of one route.
   friend bool operator==(RouteView a, RouteView b) { return a.route_ == b.route_; }

 private:
   friend class Programmer;
   friend class ProgrammerWork;
   explicit RouteView(ProgrammedRoute const* route) : route_(route) {}

   ProgrammedRoute const* route_;
};

class Programmer final {
 public:
   struct Inputs {
      std::unique_ptr<RouteTable> table = {};  // required
      // Null: those of the table. The table and the programmer must not have different ones.
      // Several chips may share a hardware status.
      Qor::Ptr<IntfVlanId::Table const> vlans = {};
      Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> published = {};
      // The groups and entries on the chip from an earlier agent. Null: the chip was cleared, or is
      // empty. Not held; outlives the programmer.
      Restart* restart = nullptr;
   };
   struct Options {
      Qor::U32 routesPerPass = 512;     // at least 1
      Qor::Seconds passBudget = 0.002;  // seconds of the loop's time; at least 0
      Qor::Seconds retry = 10;          // seconds; above 0
   };
   struct Counters {
      Qor::U64 resurrections = 0;  // zombies that a route brought back
      Qor::U64 purges = 0;         // zombies given up for room
      Qor::U64 failedWrites = 0;   // changes whose writes failed
      Qor::U64 unchanged = 0;      // wishes that changed nothing
      Qor::U64 refusals = 0;       // times a route had to wait for room
      Qor::U64 adopted = 0;        // found groups and entries that were taken over
      Qor::U64 swept = 0;          // found groups and entries that were removed
      Qor::U64 thrown = 0;         // errors of hooks and listeners

      void add(Counters const& other);
   };
   enum class End : unsigned char {
      clean,  // entries, groups and zombies are removed, and the chip's service ends
      leave,  // the chip goes on forwarding
   };

   // RangeException "VelMroute::Programmer::<input> null not allowed" for an input that is missing
   // here and in the table, "VelMroute::Programmer::<input> other than that of the table not allowed",
   // and "VelMroute::Programmer::<option> <value> not allowed" for an option out of range. With
   // `restart` the constructor rebuilds the published status of the found routes and begins a
   // resync.
   explicit Programmer(Inputs inputs);
   Programmer(Inputs inputs, Options options);
   // Shuts the gate and calls no hook: the chip keeps its tables, and writes under way may or may
   // not come through. For another end see end().
   ~Programmer();
   Programmer(Programmer const&) = delete;
   Programmer& operator=(Programmer const&) = delete;

   // The loop. The earliest time at which a clock of the process fires, as of Qor::now(), and one
   // turn of the loop, which returns the number of clocks that fired. A host that runs
   // Qor::activityManager() itself needs neither.
   Qor::Seconds nextDeadline() const;
   Qor::U32 runDue();

   // ---- Wishes. ----

   // Sets the wish for the route, in force from the next pass on. Returns true if it differs from
   // the present wish. A route that this chip or path does not take fails with a reason. Raises the
   // errors of checkWanted(), RangeException "VelMroute::Programmer::key <key> not allowed" for the
   // invalid key, and after end() "VelMroute::Programmer::routeIs after end not allowed".
   bool routeIs(L3::VrfName const& vrf, RouteKey const& key, WantedRoute wanted);
   // The owner wants the route no longer. Returns whether it was wanted.
   bool routeDel(L3::VrfName const& vrf, RouteKey const& key);

   // A resync: from the begin to the end the owner names all routes that it wants, and the others
   // go then. Serves the restart of the agent (with Inputs::restart the constructor has begun it),
   // the restart of a routing daemon, and lost notifications. A second begin starts over. After the
   // end the programmer removes the entries and groups that no wish needs, and reroutes the sets whose
   // input is down. After a restart, routes whose entries were not found get only the room that
   // is free besides the found groups and entries, until the end.
   void resyncBegin();
   void resyncEnd();
   // True from the begin until all of that is done.
   bool resyncing() const;
   // True while found groups and entries wait for their routes to be named.
   bool recovering() const;
   // Called for each interface that is down at the end of a resync, before the sets with this input
   // are rewritten.
   void onReroute(std::function<void(Lnet::IntfId)> handler);

   // ---- State. ----

   std::optional<RouteStatus> route(L3::VrfName const& vrf, RouteKey const& key) const;
   std::optional<RouteView> view(L3::VrfName const& vrf, RouteKey const& key) const;
   // Visits all wanted routes by VRF name; the order within a VRF follows from its history alone.
   // The visitor makes no call that is not const.
   void forEach(std::function<void(RouteView const&)> const& visit) const;
   // Wanted routes, and those of them in line for room (fastdrop entries included).
   Qor::U32 routes() const;
   Qor::U32 waiting() const;
   Counters counters() const;
   // Whether no work is left but that of the retry clock: no route is marked, no change under way,
   // no line has still to be asked, and no slice has to follow.
   bool settled() const;
   // Whether each route has been placed as wanted, or refused, at least once.
   bool placedAll() const;

   // The routes whose state changed since the last call, each once, also those that are gone; at
   // most `most`. Returns whether more remain. The visitor may call the programmer. Changes are
   // listed from the first call of onChanges() on. `wake` is called when the list becomes non-empty,
   // from inside a pass: it must not call the programmer.
   bool changes(Qor::U32 most,
                std::function<void(L3::VrfName const&, RouteKey const&)> const& visit);
   void onChanges(std::function<void()> wake);

   // Notified of each change of a route's state, and of each route that brings a zombie back; null
   // ends that. The calls come from inside a pass, so the observer must not throw and calls neither
   // the programmer nor a hook. It outlives the programmer or is removed.
   class Observer {
    public:
      virtual void stateChanged(RouteView const& route) = 0;
      virtual void resurrected(RouteView const& route) = 0;

    protected:
      ~Observer() = default;
   };
   void observerIs(Observer* observer);

   // ---- End. ----

   // Ends the programmer, once: no wish is taken from now on. `leave` waits for the writes under way
   // and shuts the gate. A second call changes nothing.
   void end(End how);
   // Whether the end is complete: no call of a hook follows. Deletions have no transaction, so they
   // may still be under way in a platform that queues them.
   bool ended() const;

   RouteTable& table();
   RouteTable const& table() const;

 private:
   std::unique_ptr<ProgrammerWork> const work_;
};

}  // namespace VelMroute
