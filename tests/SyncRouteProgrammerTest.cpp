// The route programmer of the synchronous path where it differs: boundary entries, room that the
// switch announces, writes that fail at once, routes that the switch never takes, and batches.
#include "RouteProgrammerBench.h"

namespace Agent {
namespace {

using Sim::SyncHook;
using Wisp::Multicast::Fib::RpaIndex;

class SyncBench : public BenchOn<SyncSide> {
 public:
   using BenchOn::BenchOn;

   static WantedRoute bridging(unsigned vlan = 1) {
      WantedRoute w = wanted("", vlan);
      w.bridgeAction = true;
      return w;
   }
   void run() {
      pass();
      EXPECT_EQ(platform->audit(), std::vector<std::string>());
   }
   // Wants route 1 as `w`. Returns the reason why the route is not in hardware, or an empty text.
   std::string whyNot(WantedRoute const& w, IpGenRouteKey const& key = keyOf(1)) {
      programmer->routeIs(vrfOf(1), key, w);
      run();
      return programmer->route(vrfOf(1), key)->reason();
   }
   std::string whyNot(unsigned n) const { return route(n)->reason(); }
   Qor::U64 commits() { return platform->calls(SyncHook::doCommitMrouteBatch); }
};

TEST(SyncRouteProgrammer, ABridgingRouteThatIsRoutedFromNowOnLeavesItsEntryToAWaitingRoute) {
   SyncBench b({4, 4, 1, 0});
   EXPECT_EQ(b.whyNot(SyncBench::bridging(0)), "a boundary entry needs a vlan");
   EXPECT_EQ(b.whyNot(SyncBench::bridging()), "");
   b.set(2, SyncBench::bridging());
   EXPECT_EQ(b.whyNot(SyncBench::wanted("et2 et3")), "");
   EXPECT_EQ(b.receivers(1) + ' ' + b.receivers(2), "et2 et3 bridged");
}

TEST(SyncRouteProgrammer, ARouteThatTheSwitchNeverTakesUsesNoRoomOnTheChip) {
   SyncBench b;
   WantedRoute w = SyncBench::wanted("et2 et3");
   EXPECT_EQ(b.whyNot(w, testSupport::key("239.0.0.9", "239.0.0.1")),
             "the source is a multicast address");
   w.rpaId = RpaIndex::notProgrammed();
   EXPECT_EQ(b.whyNot(w), "its rendezvous point has no index in the hardware");
   EXPECT_EQ(b.route(1)->state(), State::failed);
   EXPECT_EQ(b.platform->calls(SyncHook::doAllocateMtableOifSet), 0u);
   b.set(101, SyncBench::wanted("et2 et3"));
   b.run();
   EXPECT_EQ(b.route(101)->reason(), "VRF red has no id");
   b.vrfIs(100);
   b.run();
   EXPECT_EQ(b.receivers(101), "et2 et3");
}

// The table gets room without a deletion. The platform may announce the room, or may not.
TEST(SyncRouteProgrammer, AWaitingRouteIsRetriedWhenRoomOrAReviewIsAnnouncedAndPeriodically) {
   using Switch = Vel::MrouteSwitch;
   using Faults = Sim::Faults;
   struct Room {
      void (Faults::*exhausted)(bool);
      void (*announced)(Switch&);
      WantedRoute wanted;
      State waiting;
   };
   WantedRoute const routed = SyncBench::wanted("et2 et3"), bridging = SyncBench::bridging();
   for (Room const& room : {
              Room{&Faults::groupsExhaustedIs, [](Switch& s) { s.mtableFreeIs(true); }, routed,
                   State::waitingGroup},
              Room{&Faults::routesExhaustedIs, [](Switch& s) { s.mrouteTcamFreeIs(true); }, routed,
                   State::waitingEntry},
              Room{&Faults::boundariesExhaustedIs, [](Switch& s) { s.boundaryTcamFreeIs(true); },
                   bridging, State::waitingBoundary},
              Room{&Faults::routesExhaustedIs, [](Switch& s) { s.mrouteReviewKickIs(1); }, routed,
                   State::waitingEntry},
        }) {
      SyncBench b;
      (b.platform->faults().*room.exhausted)(true);
      b.whyNot(room.wanted);
      EXPECT_EQ(b.platform->groupsAllocated(), b.mrouteSwitch->zombieOifSet().size());
      EXPECT_EQ(b.programmer->counters().failedWrites, 0u);
      (b.platform->faults().*room.exhausted)(false);
      b.run();
      EXPECT_EQ(b.route(1)->state(), room.waiting);
      room.announced(*b.mrouteSwitch);
      EXPECT_EQ(b.route(1)->state(), room.waiting);  // the pass is still to come
      b.run();
      EXPECT_EQ(b.route(1)->state(), State::inHardware);
   }
   SyncBench b;
   b.platform->faults().groupsExhaustedIs(true);
   b.whyNot(routed);
   b.platform->faults().groupsExhaustedIs(false);
   b.time->runUntil(RouteProgrammer::retryInterval);
   EXPECT_EQ(b.route(1)->state(), State::inHardware);
}

TEST(SyncRouteProgrammer, AFailedWriteIsTriedThreeTimesAndThenUndone) {
   std::tuple<WriteKind, WantedRoute, char const*> const cases[] = {
         {WriteKind::groupCreate, SyncBench::wanted("et2 et3"),
          "the replication table could not be written; waits for the next review"},
         {WriteKind::routeCreate, SyncBench::wanted("et2 et3"), "write failed 3 times"},
         {WriteKind::boundaryCreate, SyncBench::bridging(), "write failed 3 times"}};
   for (auto const& [kind, wanted, why] : cases) {
      SCOPED_TRACE(kind);
      SyncBench b;
      b.platform->faults().failNext(kind, "parity error", 3);
      EXPECT_EQ(b.whyNot(wanted), why);
      EXPECT_EQ(b.programmer->counters().failedWrites, 3u);
      EXPECT_EQ(b.platform->groupsAllocated(), b.mrouteSwitch->zombieOifSet().size());
      EXPECT_EQ(b.hwStatus->routes(), 0u);
      // A review helps only a route that waits for a group.
      b.mrouteSwitch->mrouteReviewKickIs(1);
      b.run();
      EXPECT_EQ(b.route(1)->state() == State::inHardware, kind == WriteKind::groupCreate);
      b.del(1);
      b.run();
      b.mrouteSwitch->zombieOifSetDelAll();
      b.platform->faults().failNext(kind, "parity error", 2);
      EXPECT_EQ(b.whyNot(wanted), "");
   }
}

TEST(SyncRouteProgrammer, ABatchIsCommittedOnceForEachPassThatWrites) {
   SyncBench b({10, 1000, 0, 0});
   for (unsigned n = 0; n < RouteProgrammer::routesPerPass + 1; ++n)
      b.programmer->routeIs(SyncBench::vrfOf(1), testSupport::key(n ? 100 + n : 1),
                            SyncBench::wanted("et2 et3"));
   b.run();
   EXPECT_EQ(b.commits(), 2u);
   EXPECT_EQ(b.whyNot(SyncBench::wanted("et2 et3")), "");
   EXPECT_EQ(b.commits(), 2u);
   b.platform->faults().routesExhaustedIs(true);
   b.set(99, SyncBench::wanted("et4"));  // its group is written and then becomes a zombie
   b.run();
   EXPECT_EQ(b.route(99)->state(), State::waitingEntry);
   EXPECT_EQ(b.commits(), 3u);
   b.mrouteSwitch->mrouteReviewKickIs(1);  // no route waits for a group
   b.run();
   EXPECT_EQ(b.commits(), 3u);
   b.programmer = nullptr;
   EXPECT_EQ(b.commits(), 4u);
}

}  // namespace
}  // namespace Agent
