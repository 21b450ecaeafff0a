// Compares a switch with the model of what it should forward (agent/soak/SoakModel.h), and its
// tables with each other. It reads the chip, the table programmer's records and where the route
// programmer says that routes stand; what it finds wrong, it keeps as texts.
//
// A look is taken whenever the clock is about to move. It goes to the routes that were changed
// since they were last seen to be as wanted, to a few others, and now and then to everything.
//
//  - At rest (nothing to do, nothing under way) all must be exact: a route is in hardware and
//    forwards as wanted, or it is not there at all, for a reason that is true.
//  - While writes are under way a packet of a route comes out as one of its latest wishes says, or
//    nowhere; not even nowhere where only the outputs change and there is room for both.
//
//  - When the agent starts anew, what was at rest and is still wanted as before goes on without a
//    gap; the rest is as if it had been changed.
//
// What injected faults excuse is kept as narrow as it can be: see Excuse.
#pragma once

#include <random>
#include <set>

#include "agent/soak/SoakCounters.h"
#include "agent/soak/SoakModel.h"
#include "agent/switch/SimulatedSwitch.h"

namespace Agent {

// What a soak has done, for people.
struct SoakFigures {
   std::uint64_t looks = 0;        // moments at which something was compared
   std::uint64_t routeChecks = 0;  // routes compared with the model, one packet each
   std::uint64_t fullChecks = 0;   // comparisons of everything
   std::uint64_t tableChecks = 0;  // routes, groups and entries compared in those
   std::uint64_t packets = 0;      // of traffic
   std::uint64_t reroutes = 0;     // routes whose backup took over
   std::uint64_t faults = 0;       // writes that were made to fail
   std::uint64_t refusals = 0;     // times a route had to wait for room
   std::uint64_t resurrections = 0;
   std::uint64_t purges = 0;
   std::uint64_t unchanged = 0;   // updates that changed nothing
   std::uint64_t writes = 0;      // to the chip
   std::uint64_t hookCalls = 0;   // of the platform
   std::uint64_t restarts = 0;    // of the agent
   std::uint64_t routesPeak = 0;  // most wanted at once

   SoakFigures& operator+=(SoakFigures const& other);
};

class SoakOracle {
 public:
   using Route = Testbed::Route;

   static constexpr unsigned usualLooks = 16;

   // The switch outlives the oracle, which looks at everything once in so many looks.
   SoakOracle(SimulatedSwitch& simulated, PathKind path, PathConfig const& config,
              unsigned looksPerFullCheck = usualLooks);

   // ---- What has been done to the switch. ----

   void routeIs(Route const& route);
   void routeDel(RouteId const& id);
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state);
   void bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state);
   void configIs(Scenario::Config const& config);
   void counterRouteIs(RouteId const& id, bool counted) {
      counters_.countedIs(id.vrf, id.key, counted);
   }
   void faultIs(Scenario::Fault const& fault);
   // The agent is about to crash, and to start anew.
   void crash(Scenario::Restart const& restart);
   // All routes are told again, and those that come in over this interface go to their backups.
   void rerouting(Lnet::IntfId failed);
   // The writes to the chip so far, if the switch is at rest and wants the route just so.
   std::optional<std::uint64_t> writesIfUnchanged(Route const& route);
   // It has been told so again.
   void unchanged(Route const& route, std::uint64_t writesBefore);
   void sent(Sim::Packet const& packet, Sim::Forwarded const& forwarded);

   // ---- Comparing. ----

   // Everything that is due now has been done.
   void look();
   // Everything, at rest.
   void lookAtAll();
   // Nothing is wanted any more and no zombie lives: the chip is as it was in the beginning.
   void lookAtEmpty();

   std::vector<std::string> const& found() const { return found_; }
   SoakFigures figures() const;

 private:
   using Known = SoakModel::Known;
   using State = RouteProgrammer::State;

   // Why a route may wait for room in a table that has some: the platform denied it lately. It is
   // an excuse until something is deleted from the table, when those who wait are to try again, and
   // for as long as it may take until they are asked without that.
   struct Excuse {
      bool denied = false;  // at present
      bool holds = false;
      double since = 0;
      // Deletions up to the first rest since then; what is issued before may be written later.
      std::optional<std::uint64_t> deletions;
   };

   // Where a group sends to: outputs, and whether to the CPU.
   using Members = std::pair<std::set<Lnet::IntfId>, bool>;

   // What has happened since the latest restart; of use until all routes have been told again.
   struct Replay {
      bool underWay = false;  // at the last look
      // Failures of these, during the replay or at its end, leave nothing to do.
      std::set<Lnet::IntfId> rerouted;
      // From which members to which others groups were rewritten meanwhile; also in replays that a
      // crash interrupted.
      std::set<std::pair<Members, Members>> rewrites;
   };

   void wrong(RouteId const& id, std::string const& text);
   void wrong(std::string const& text);
   bool atRest() const;
   RouteProgrammer const& programmer() const { return std::as_const(simulated_).routeProgrammer(); }
   Bridging::VlanIdOrNone vlanOf(Route const& route) const;
   Outputs outputsOf(Sim::Group const* group) const;
   Sim::EntryTable const& tableOf(Route const& route) const;
   std::uint64_t failures() const;
   std::uint64_t writes() const;
   bool roomToSpare() const;
   bool staysOverCrash(RouteId const& id, Known const& known, bool rest) const;
   // What a failed write has left behind is cleared up by the time that a zombie has expired.
   bool failedLately() const { return Qor::now() < failedAt_ + 10; }

   void updateExcuses(bool rest);
   bool excused(Table table) const { return excuses_[static_cast<std::size_t>(table)].holds; }
   bool full(Table table) const;
   void rerouted(Lnet::IntfId failed);
   std::vector<Outputs> followed(Known const& known) const;
   void nobodyUninterrupted();
   void noteRecovered();
   void unverified(RouteId const& id);

   bool checkRoute(RouteId const& id, Known& known, bool rest);
   void checkAbsent(RouteId const& id);
   void checkState(RouteId const& id, Known const& known, RouteProgrammer::Route const& route);
   // The route is null while it is not told again after a restart.
   void checkPacket(RouteId const& id, Known& known, RouteProgrammer::Route const* route,
                    bool rest);
   // The oif set object of the group that the route holds, by serial.
   static std::optional<Qor::U64> heldBy(RouteProgrammer::Route const* route);
   // What the route must forward to now; more than one where a failed rewrite leaves it open.
   std::vector<Outputs> expected(Known& known, RouteProgrammer::Route const* route) const;
   void noteHit(RouteId const& id, Known& known, Sim::Entry const& entry) const;

   void checkEntries();
   void checkBoundaries();
   void checkRoutesInTables();
   void checkGroups();
   void checkZombies(std::vector<RecordRow> const& zombies, std::set<Qor::U64> const& inUse);
   void checkMembers(RecordRow const& row, bool zombie);
   void checkActivity(RouteId const& id, Known& known);

   SimulatedSwitch& simulated_;
   PathKind const path_;
   PathConfig const config_;
   SoakModel model_;
   SoakCounters counters_;
   std::mt19937_64 random_{1};
   std::vector<RouteId> unverified_;
   std::vector<RouteId> everWanted_;  // to choose from at random
   std::map<Qor::U32, L3::VrfName> vrfNames_;
   std::array<Excuse, tables> excuses_;
   std::uint64_t failuresSeen_ = 0;
   std::uint64_t failuresAtRest_ = 0;
   double failedAt_ = -10;
   Replay replay_;
   bool callsTakeTime_;     // or have done so
   double busySince_ = -1;  // the hit bits could not be read since; negative: they can
   unsigned const looksPerFullCheck_;
   unsigned untilFull_ = looksPerFullCheck_;
   // At the last full look, by the serials of the oif sets: zombies with their expiry, and those in
   // use.
   std::map<Qor::U64, double> zombies_;
   std::set<Qor::U64> inUse_;
   std::set<Qor::U64> rewritten_;  // oif sets whose groups have been, by serial
   double zombiesAt_ = 0;
   std::uint64_t purgesAtZombies_ = 0;
   SoakFigures figures_;
   std::vector<std::string> found_;
};

}  // namespace Agent
