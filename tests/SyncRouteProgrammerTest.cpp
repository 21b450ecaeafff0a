// What is particular to the route programmer of the synchronous path: boundary entries, room that the
// switch announces, writes that fail at once, routes that the switch takes in no case, and batches.
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
   // What becomes of route 1 when this is wanted of it: nothing when it is in hardware.
   std::string whyNot(WantedRoute const& w, IpGenRouteKey const& key = keyOf(1)) {
      programmer->routeIs(vrfOf(1), key, w);
      run();
      return programmer->route(vrfOf(1), key)->reason();
   }
   std::string whyNot(unsigned n) const { return route(n)->reason(); }
   Qor::U64 commits() { return platform->calls(SyncHook::doCommitMrouteBatch); }
};

TEST(SyncRouteProgrammer, ABridgingRouteLeavesItsPlaceToWhoWaitsWhenItMovesToTheRoutes) {
   SyncBench b({4, 4, 1, 0});
   EXPECT_EQ(b.whyNot(SyncBench::bridging(0)), "a boundary entry needs a vlan");
   EXPECT_EQ(b.whyNot(SyncBench::bridging()), "");
   b.set(2, SyncBench::bridging());
   EXPECT_EQ(b.whyNot(SyncBench::wanted("23")), "");
   EXPECT_EQ(b.receivers(1) + ' ' + b.receivers(2), "23 bridged");
}

TEST(SyncRouteProgrammer, WhatTheSwitchTakesInNoCaseTakesNothingOfTheChip) {
   SyncBench b;
   WantedRoute w = SyncBench::wanted("23");
   EXPECT_EQ(b.whyNot(w, testSupport::key("239.0.0.9", "239.0.0.1")),
             "the source is a multicast address");
   w.rpaId = RpaIndex::notProgrammed();
   EXPECT_EQ(b.whyNot(w), "its rendezvous point has no index in the hardware");
   EXPECT_EQ(b.route(1)->state(), State::failed);
   EXPECT_EQ(b.platform->calls(SyncHook::doAllocateMtableOifSet), 0u);
   b.set(101, SyncBench::wanted("23"));
   b.run();
   EXPECT_EQ(b.route(101)->reason(), "VRF red has no id");
   b.vrfIs(100);
   b.run();
   EXPECT_EQ(b.receivers(101), "23");
}

// The table has room again, though nothing was deleted: a platform may find that out by itself, or
// nobody says so.
TEST(SyncRouteProgrammer, WhoWaitsTriesAgainWhenTheSwitchAnnouncesRoomOrAsksForAReviewAndInTime) {
   using Switch = Vel::MrouteSwitch;
   using Faults = Sim::Faults;
   struct Room {
      void (Faults::*exhausted)(bool);
      void (*announced)(Switch&);
      WantedRoute wanted;
      State waiting;
   };
   WantedRoute const routed = SyncBench::wanted("23"), bridging = SyncBench::bridging();
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
      EXPECT_EQ(b.route(1)->state(), room.waiting);  // only marked
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

TEST(SyncRouteProgrammer, AFailedWriteIsTriedThreeTimesAndWhatIsLeftOfItIsTakenBack) {
   std::tuple<WriteKind, WantedRoute, char const*> const cases[] = {
         {WriteKind::groupCreate, SyncBench::wanted("23"),
          "the replication table could not be written; waits for the next review"},
         {WriteKind::routeCreate, SyncBench::wanted("23"), "write failed 3 times"},
         {WriteKind::boundaryCreate, SyncBench::bridging(), "write failed 3 times"}};
   for (auto const& [kind, wanted, why] : cases) {
      SCOPED_TRACE(kind);
      SyncBench b;
      b.platform->faults().failNext(kind, "parity error", 3);
      EXPECT_EQ(b.whyNot(wanted), why);
      EXPECT_EQ(b.programmer->counters().failedWrites, 3u);
      EXPECT_EQ(b.platform->groupsAllocated(), b.mrouteSwitch->zombieOifSet().size());
      EXPECT_EQ(b.hwStatus->routes(), 0u);
      // Only who waits for a group is helped by a review.
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

TEST(SyncRouteProgrammer, ABatchIsCommittedOnceForEachPassThatWroteSomething) {
   SyncBench b({10, 1000, 0, 0});
   for (unsigned n = 0; n < RouteProgrammer::routesPerPass + 1; ++n)
      b.programmer->routeIs(SyncBench::vrfOf(1), testSupport::key(n ? 100 + n : 1),
                            SyncBench::wanted("23"));
   b.run();
   EXPECT_EQ(b.commits(), 2u);
   EXPECT_EQ(b.whyNot(SyncBench::wanted("23")), "");
   EXPECT_EQ(b.commits(), 2u);
   b.platform->faults().routesExhaustedIs(true);
   b.set(99, SyncBench::wanted("4"));  // its group is written, and left behind
   b.run();
   EXPECT_EQ(b.route(99)->state(), State::waitingEntry);
   EXPECT_EQ(b.commits(), 3u);
   b.mrouteSwitch->mrouteReviewKickIs(1);  // which helps nobody
   b.run();
   EXPECT_EQ(b.commits(), 3u);
   b.programmer = nullptr;
   EXPECT_EQ(b.commits(), 4u);
}

}  // namespace
}  // namespace Agent
