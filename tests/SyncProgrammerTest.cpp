// The programmer on the synchronous path where that differs: boundary entries, room that the
// switch announces, writes that fail at once, routes that the switch never takes, and batches.
#include "ProgrammerBench.h"

namespace VelMroute {
namespace {

using Sim::SyncHook;
using Wisp::Multicast::Fib::RpaIndex;

class SyncBench : public BenchOn<SyncSide> {
 public:
   using BenchOn::BenchOn;

   WantedRoute bridging(unsigned vlan = 1) const {
      WantedRoute w = wanted("", vlan);
      w.bridge = true;
      return w;
   }
   // A route that is bridged, or one that is routed to two ports.
   WantedRoute wish(bool bridged) const { return bridged ? bridging() : wanted("et2 et3"); }
   void run() {
      pass();
      EXPECT_EQ(platform->audit(), std::vector<std::string>());
   }
   // Wants route 1 as `w`. Returns the reason why the route is not in hardware, or an empty text.
   std::string whyNot(WantedRoute const& w, IpGenRouteKey const& key = keyOf(1)) {
      programmer->routeIs(vrfOf(1), key, w);
      run();
      return programmer->route(vrfOf(1), key)->reason;
   }
   std::string whyNot(unsigned n) const { return route(n)->reason(); }
   Qor::U64 commits() { return platform->calls(SyncHook::doCommitMrouteBatch); }
};

TEST(SyncProgrammer, ABridgingRouteThatIsRoutedFromNowOnLeavesItsEntryToAWaitingRoute) {
   SyncBench b({4, 4, 1, 0});
   EXPECT_EQ(b.whyNot(b.bridging()), "");
   b.set(2, b.bridging());
   EXPECT_EQ(b.whyNot(b.wanted("et2 et3")), "");
   EXPECT_EQ(b.receivers(1) + ' ' + b.receivers(2), "et2 et3 bridged");
}

TEST(SyncProgrammer, ARouteThatTheSwitchNeverTakesUsesNoRoomOnTheChip) {
   SyncBench b;
   WantedRoute w = b.wanted("et2 et3");
   EXPECT_EQ(b.whyNot(w, testSupport::key("239.0.0.9", "239.0.0.1")),
             "the source is a multicast address");
   w.rpaId = RpaIndex::notProgrammed();
   EXPECT_EQ(b.whyNot(w), "its rendezvous point has no index in the hardware");
   EXPECT_EQ(b.route(1)->state(), State::failed);
   EXPECT_EQ(b.platform->calls(SyncHook::doAllocateMtableOifSet), 0u);
}

// The table gets room without a deletion. The platform may announce the room, or may not.
TEST(SyncProgrammer, AWaitingRouteIsRetriedWhenRoomOrAReviewIsAnnouncedAndPeriodically) {
   using Switch = Vel::MrouteSwitch;
   using Faults = Sim::Faults;
   struct Room {
      void (Faults::*exhausted)(bool);
      void (*announced)(Switch&);
      bool bridged;
      State waiting;
   };
   for (Room const& room : {
              Room{&Faults::groupsExhaustedIs, [](Switch& s) { s.mtableFreeIs(true); }, false,
                   State::waitingGroup},
              Room{&Faults::routesExhaustedIs, [](Switch& s) { s.mrouteTcamFreeIs(true); }, false,
                   State::waitingEntry},
              Room{&Faults::boundariesExhaustedIs, [](Switch& s) { s.boundaryTcamFreeIs(true); },
                   true, State::waitingBoundary},
              Room{&Faults::routesExhaustedIs, [](Switch& s) { s.mrouteReviewKickIs(1); }, false,
                   State::waitingEntry},
        }) {
      SyncBench b;
      (b.platform->faults().*room.exhausted)(true);
      b.whyNot(b.wish(room.bridged));
      EXPECT_EQ(b.platform->groupsAllocated(), b.mrouteSwitch()->zombieOifSet().size());
      EXPECT_EQ(b.programmer->counters().failedWrites, 0u);
      (b.platform->faults().*room.exhausted)(false);
      b.run();
      EXPECT_EQ(b.route(1)->state(), room.waiting);
      room.announced(*b.mrouteSwitch());
      EXPECT_EQ(b.route(1)->state(), room.waiting);  // the pass is still to come
      b.run();
      EXPECT_EQ(b.route(1)->state(), State::inHardware);
   }
   SyncBench b;
   b.platform->faults().groupsExhaustedIs(true);
   b.whyNot(b.wish(false));
   b.platform->faults().groupsExhaustedIs(false);
   b.time->runUntil(Programmer::Options().retry);
   EXPECT_EQ(b.route(1)->state(), State::inHardware);
}

TEST(SyncProgrammer, AFailedWriteIsTriedThreeTimesAndThenUndone) {
   std::tuple<WriteKind, bool, char const*> const cases[] = {
         {WriteKind::groupCreate, false,
          "the replication table could not be written; waits for the next review"},
         {WriteKind::routeCreate, false, "write failed 3 times"},
         {WriteKind::boundaryCreate, true, "write failed 3 times"}};
   for (auto const& [kind, bridged, why] : cases) {
      SCOPED_TRACE(kind);
      SyncBench b;
      b.platform->faults().failNext(kind, "parity error", 3);
      EXPECT_EQ(b.whyNot(b.wish(bridged)), why);
      EXPECT_EQ(b.programmer->counters().failedWrites, 3u);
      EXPECT_EQ(b.platform->groupsAllocated(), b.mrouteSwitch()->zombieOifSet().size());
      EXPECT_EQ(b.hwStatus->routes(), 0u);
      // A review helps only a route that waits for a group.
      b.mrouteSwitch()->mrouteReviewKickIs(1);
      b.run();
      EXPECT_EQ(b.route(1)->state() == State::inHardware, kind == WriteKind::groupCreate);
      b.del(1);
      b.run();
      b.mrouteSwitch()->zombieOifSetDelAll();
      b.platform->faults().failNext(kind, "parity error", 2);
      EXPECT_EQ(b.whyNot(b.wish(bridged)), "");
   }
}

TEST(SyncProgrammer, ABatchIsCommittedOnceForEachPassThatWrites) {
   SyncBench b({10, 1000, 0, 0});
   for (unsigned n = 0; n < Programmer::Options().routesPerPass + 1; ++n)
      b.programmer->routeIs(SyncBench::vrfOf(1), testSupport::key(n ? 100 + n : 1),
                            b.wanted("et2 et3"));
   b.run();
   EXPECT_EQ(b.commits(), 2u);
   EXPECT_EQ(b.whyNot(b.wanted("et2 et3")), "");
   EXPECT_EQ(b.commits(), 2u);
   b.platform->faults().routesExhaustedIs(true);
   b.set(99, b.wanted("et4"));  // its group is written and then becomes a zombie
   b.run();
   EXPECT_EQ(b.route(99)->state(), State::waitingEntry);
   EXPECT_EQ(b.commits(), 3u);
   b.mrouteSwitch()->mrouteReviewKickIs(1);  // no route waits for a group
   b.run();
   EXPECT_EQ(b.commits(), 3u);
}

}  // namespace
}  // namespace VelMroute
