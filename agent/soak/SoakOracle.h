// Compares a switch as the kit does (kit/Kit.h), over long random scenarios: the calls of the hooks
// with their contract, the chip with the shadow of its tables (kit/ChipComparison.h), and the
// forwarding with the model of the wanted routes (kit/ForwardingModel.h). Beside these, the oracle
// compares the tables of the switch with each other, the zombies, the published activity, and the
// counters. It collects its findings as texts.
//
// A finding that begins with "the hooks:" or "the platform:" names these; any other is a fault of
// the library.
//
// The oracle looks at the switch before each step of the clock. A look compares the routes that
// changed since the last rest and a few other routes; some looks at rest compare everything.
//
//  - At rest, with no write under way and no work left, everything must be exact. A route is in
//    hardware and forwards as wanted, or it has no entry and its reason is true.
//  - While writes are under way, a packet leaves as one of the latest wanted states of its route
//    says, or nowhere. It must not be lost if only the outputs change and both groups have room.
//  - During a restart of the agent, a route that was at rest and is replayed without a change
//    forwards without a gap. The other routes are compared like changed routes.
//
// An injected fault permits only those differences that it can cause: see Excuse.
#pragma once

#include <random>
#include <set>
#include <unordered_map>

#include "agent/scenario/Scenario.h"
#include "agent/soak/SoakCounters.h"
#include "agent/switch/GroupName.h"
#include "agent/switch/Switch.h"
#include "kit/ChipComparison.h"
#include "kit/ForwardingModel.h"

namespace Agent {

// The printed figures of a soak.
struct SoakFigures {
   std::uint64_t looks = 0;        // times at which the oracle compared something
   std::uint64_t routeChecks = 0;  // comparisons of a route with the model, by one packet
   std::uint64_t fullChecks = 0;   // looks that compared everything
   std::uint64_t tableChecks = 0;  // routes, groups and entries that these looks compared
   std::uint64_t traces = 0;       // traces of packets, compared with the packets
   std::uint64_t packets = 0;      // packets of the scenario and of the comparisons
   std::uint64_t reroutes = 0;     // routes whose backup took over
   std::uint64_t faults = 0;       // failed writes and refused calls
   std::uint64_t refusals = 0;     // times a route had to wait for room
   std::uint64_t resurrections = 0;
   std::uint64_t purges = 0;
   std::uint64_t unchanged = 0;   // updates that changed nothing
   std::uint64_t writes = 0;      // to the chip
   std::uint64_t hookCalls = 0;   // calls of the platform's hooks
   std::uint64_t restarts = 0;    // restarts of the agent
   std::uint64_t routesPeak = 0;  // the largest number of wanted routes

   SoakFigures& operator+=(SoakFigures const& other);
};

// The times of a platform that the oracle cannot read.
struct SoakTiming {
   double minPollingInterval = 0;  // seconds; the shortest interval that the platform supports
   double callCost = 0;            // virtual seconds that each call of a hook takes
};

class SoakOracle {
 public:
   using Route = VelMroute::ForwardingModel::Route;

   static constexpr unsigned usualLooks = 16;

   // The switch outlives the oracle, and its hooks are checked. Its platform has view, probe and faults, counts writes, and
   // knows the sizes of its tables. `timing` has the times of the platform. After
   // `looksPerFullCheck` looks, the next look at rest compares everything.
   SoakOracle(Switch& theSwitch, SoakTiming const& timing, unsigned looksPerFullCheck = usualLooks);

   // ---- The operations on the switch, called after the switch has done them. ----

   void routeIs(Route const& route);
   void routeDel(RouteId const& id);
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state);
   void bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state);
   void configIs(Scenario::Config const& config);
   void counterRouteIs(RouteId const& id, bool counted) {
      counters_.countedIs(id.vrf, id.key, counted);
   }
   void faultIs(Scenario::Fault const& fault);
   // Called before the agent crashes and restarts.
   void crash(Scenario::Restart const& restart);
   // Called for each failed interface at the end of a replay, before the groups of the routes with
   // this input are rewritten.
   void rerouting(Lnet::IntfId failed);
   // Called before routeIs(). Returns the number of writes to the chip so far if the update changes
   // nothing and the switch is at rest.
   std::optional<std::uint64_t> writesIfUnchanged(Route const& route);
   // Called after such an update. Reports a finding if the update wrote to the chip.
   void unchanged(Route const& route, std::uint64_t writesBefore);
   void sent(VelMroute::Probe::Packet const& packet, VelMroute::Probe::Seen const& seen);

   // ---- Comparisons. ----

   // Called when no work is due at the present time.
   void look();
   // Compares everything, and reports a finding if the switch is not at rest.
   void lookAtAll();
   // Tests that the chip is empty. Called when no route is wanted and every zombie has expired.
   void lookAtEmpty();

   std::vector<std::string> const& found() const { return found_; }
   SoakFigures figures() const;

 private:
   using Known = VelMroute::ForwardingModel::Known;
   using Outputs = VelMroute::ForwardingModel::Outputs;
   using State = VelMroute::RouteState;
   using Entry = VelMroute::View::Entry;

   // The permission for routes to wait although the table has room. It holds after the platform
   // refused room or a write failed. It ends with the next deletion from the table, because the
   // route programmer then retries the waiting routes, or when the regular retry is overdue.
   struct Excuse {
      bool denied = false;  // the platform refuses room at present
      bool holds = false;
      double since = 0;  // Qor::now() at the last refusal or failure
      // The table's deletions up to the first rest after `since`. They do not end the permission,
      // because they may have been issued before `since`.
      std::optional<std::uint64_t> deletions;
   };

   // The packets of a route and its published activity. With these the oracle distinguishes a late
   // value from a missing one. Times are Qor::now().
   struct Activity {
      // The last packet that hit the route's own entry, and those that hit its fastdrop entries.
      double lastHit = 0;
      std::map<Lnet::IntfId, double> fastdropHit;
      // The last packet that hit any entry with this key. `foundHit` is `anyHit` as of the end of
      // the last replay: the new agent still reads these hits from the adopted entries.
      double anyHit = 0, foundHit = 0;
      // As of the last check: the published status, the time since which the status and the entry
      // are the same objects, and the published time of the last poll.
      Qor::Ptr<Routing::Multicast::Fib::Hardware::RouteStatus const> status;
      double sameSince = 0;
      double lastPollTime = 0;
   };

   // The outputs of a group, and whether the group has a copy to the CPU.
   using Members = std::pair<std::set<Lnet::IntfId>, bool>;

   // The events since the last restart, for the comparisons during its replay.
   struct Replay {
      bool underWay = false;  // as of the last look or link event
      // The interfaces for which groups were rewritten since the routing layer announced the end of
      // the replay.
      std::set<Lnet::IntfId> rerouted;
      // The members before and after each rewrite of a group since the restart. If a crash
      // interrupted the replay before, its rewrites are included.
      std::set<std::pair<Members, Members>> rewrites;
   };

   void wrong(RouteId const& id, std::string const& text);
   void wrong(std::string const& text);
   bool atRest() const;
   Programmer const& programmer() const { return std::as_const(switch_).programmer(); }
   Bridging::VlanIdOrNone vlanOf(Route const& route) const;
   VelMroute::View const& view() const { return switch_.view(); }
   VelMroute::Faults const& faults() const { return *switch_.platform().faults(); }
   // Without the groups of empty sets.
   Qor::U32 groupsAllocated() const { return *view().use(Table::group).allocated; }
   Outputs outputsOf(std::optional<Qor::U32> group) const;
   std::uint64_t failures() const;
   std::uint64_t writes() const;
   bool roomToSpare() const;
   bool staysOverCrash(RouteId const& id, Known const& known, bool rest) const;
   // Whether remains of a failed write may still be in the tables. 10 s are longer than the
   // lifetime of a zombie.
   bool failedLately() const { return Qor::now() < failedAt_ + 10; }

   void updateExcuses(bool rest);
   bool excused(Table table) const { return excuses_[static_cast<std::size_t>(table)].holds; }
   bool full(Table table) const;
   void rerouted(Lnet::IntfId failed);
   std::vector<Outputs> followed(Known const& known) const;
   void nobodyUninterrupted();
   void noteRecovered();
   void unverified(RouteId const& id);

   void checkTrace();
   bool checkRoute(RouteId const& id, Known& known, bool rest);
   void checkAbsent(RouteId const& id);
   void checkState(RouteId const& id, Known const& known, RouteView const& route);
   void checkHooks();
   // There is no `route` before the route is replayed.
   void checkPacket(RouteId const& id, Known& known, std::optional<RouteView> route, bool rest);
   // The permitted outputs of a route at rest. A rewrite that may have failed permits two.
   std::vector<Outputs> expected(Known& known, std::optional<RouteView> route) const;
   void noteHit(RouteId const& id, Known const& known, Entry const& entry);

   void checkEntries();
   void checkBoundaries();
   void checkRoutesInTables();
   void checkGroups();
   void checkZombies(std::vector<RecordRow> const& zombies, std::set<Qor::U64> const& inUse);
   void checkMembers(RecordRow const& row, bool zombie);
   void checkActivity(RouteId const& id, Known const& known);
   // The longest polling interval in force since a time, in seconds.
   double longestInterval(double since) const;

   Switch& switch_;
   PathKind const path_;
   SoakTiming const timing_;
   VelMroute::ForwardingModel model_;
   std::unordered_map<RouteId, Activity, VelMroute::RouteIdHash> activities_;
   // Each polling interval in seconds, behind the time since which it is in force.
   std::vector<std::pair<double, double>> intervals_{{0, 60}};
   std::size_t hookFaults_ = 0;  // of the list of the switch, those that are findings
   SoakCounters counters_;
   std::mt19937_64 random_{1};
   std::vector<RouteId> unverified_;  // Known::unverified; a route may be there twice
   std::vector<RouteId> everWanted_;  // look() selects its other routes from these
   std::map<Vel::VrfId, L3::VrfName> vrfNames_;
   std::map<Qor::U32, Qor::U32> pointing_;  // by group, the number of route entries at a full look
   std::array<Excuse, VelMroute::allTables.size()> excuses_;
   std::uint64_t failuresSeen_ = 0;
   std::uint64_t failuresAtRest_ = 0;
   double failedAt_ = -10;
   Replay replay_;
   bool callsTakeTime_;  // hook calls take time, or have taken time
   // The estimated time at which the hit bits can be read after the last fault; negative without
   // such a fault.
   double busySince_ = -1;
   unsigned const looksPerFullCheck_;
   unsigned untilFull_ = looksPerFullCheck_;
   // At the last full look: the expiry times of the zombies by the serials of their oif sets, and
   // the serials of the oif sets in use.
   std::map<Qor::U64, double> zombies_;
   std::set<Qor::U64> inUse_;
   double zombiesAt_ = 0;               // Qor::now() at the last full look
   std::uint64_t purgesAtZombies_ = 0;  // purges and resurrections up to the last full look
   SoakFigures figures_;
   std::vector<std::string> found_;
};

}  // namespace Agent
