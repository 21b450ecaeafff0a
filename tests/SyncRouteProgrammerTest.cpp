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
      time->runUntil(Qor::never);
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

TEST(SyncRouteProgrammer, ARouteThatBridgesTakesABoundaryEntryAndNoGroup) {
   SyncBench b({4, 4, 1, 0});
   EXPECT_EQ(b.whyNot(SyncBench::bridging()), "");
   b.set(2, SyncBench::bridging());
   b.run();
   EXPECT_EQ(b.receivers(1), "bridged");
   EXPECT_EQ(b.route(2)->state(), State::waitingBoundary);
   EXPECT_EQ(b.whyNot(2), "no free boundary entry; waits for a deletion");
   EXPECT_EQ(b.chip->groups() + b.chip->routes().size(), 0u);
   // It moves from table to table, and leaves its place to who waits.
   EXPECT_EQ(b.whyNot(SyncBench::wanted("23")), "");
   EXPECT_EQ(b.receivers(1) + ' ' + b.receivers(2), "23 bridged");
   EXPECT_EQ(b.whyNot(SyncBench::bridging(2)), "no free boundary entry; waits for a deletion");
   EXPECT_EQ(b.receivers(1), "noRoute");
   b.del(2);
   b.run();
   EXPECT_EQ(b.receivers(1, 2), "bridged");
   EXPECT_EQ(b.whyNot(SyncBench::bridging(0)), "a boundary entry needs a vlan");
   EXPECT_EQ(b.chip->boundaries().size(), 0u);
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
   w.rpaId = RpaIndex(7);
   EXPECT_EQ(b.whyNot(w), "");
   b.set(101, SyncBench::wanted("23"));
   b.run();
   EXPECT_EQ(b.whyNot(101), "VRF red has no id");
   b.vrfIs(100);
   b.run();
   EXPECT_EQ(b.receivers(101), "23");
}

// The table has room again, though nothing was deleted: a platform may find that out by itself.
TEST(SyncRouteProgrammer, WhoWaitsTriesAgainWhenTheSwitchAnnouncesRoomOrAsksForAReview) {
   using Switch = Vel::MrouteSwitch;
   struct Room {
      void (Sim::Faults::*exhausted)(bool);
      void (*announced)(Switch&);
      WantedRoute wanted;
      State waiting;
   };
   auto const kick = [](Switch& s) { s.mrouteReviewKickIs(s.mrouteReviewKick() + 1); };
   WantedRoute const routed = SyncBench::wanted("23"), bridging = SyncBench::bridging();
   using Faults = Sim::Faults;
   for (Room const& room : {
              Room{&Faults::groupsExhaustedIs, [](Switch& s) { s.mtableFreeIs(true); }, routed,
                   State::waitingGroup},
              Room{&Faults::routesExhaustedIs, [](Switch& s) { s.mrouteTcamFreeIs(true); }, routed,
                   State::waitingEntry},
              Room{&Faults::boundariesExhaustedIs, [](Switch& s) { s.boundaryTcamFreeIs(true); },
                   bridging, State::waitingBoundary},
              Room{&Faults::groupsExhaustedIs, kick, routed, State::waitingGroup},
              Room{&Faults::routesExhaustedIs, kick, routed, State::waitingEntry},
              Room{&Faults::boundariesExhaustedIs, kick, bridging, State::waitingBoundary},
        }) {
      SyncBench b;
      (b.platform->faults().*room.exhausted)(true);
      b.whyNot(room.wanted);
      EXPECT_EQ(b.route(1)->state(), room.waiting);
      EXPECT_EQ(b.route(1)->record(), nullptr);
      EXPECT_EQ(b.platform->groupsAllocated(), b.mrouteSwitch->zombieOifSet().size());
      EXPECT_EQ(b.programmer->counters().failedWrites, 0u);
      (b.platform->faults().*room.exhausted)(false);
      b.run();
      EXPECT_EQ(b.route(1)->state(), room.waiting);  // nothing polls
      room.announced(*b.mrouteSwitch);
      EXPECT_EQ(b.route(1)->state(), room.waiting);  // only marked
      b.run();
      EXPECT_EQ(b.route(1)->state(), State::inHardware);
   }
}

TEST(SyncRouteProgrammer, AFailedWriteIsTriedThreeTimesAndWhatIsLeftOfItIsTakenBack) {
   struct Case {
      WriteKind kind;
      bool bridges;
      char const* why;
   };
   for (Case const& c :
        {Case{WriteKind::groupCreate, false,
              "the replication table could not be written; waits for the next review"},
         Case{WriteKind::routeCreate, false, "write failed 3 times"},
         Case{WriteKind::boundaryCreate, true, "write failed 3 times"}}) {
      SCOPED_TRACE(c.kind);
      SyncBench b;
      WantedRoute const w = c.bridges ? SyncBench::bridging() : SyncBench::wanted("23");
      b.platform->faults().failNext(c.kind, "parity error", 3);
      EXPECT_EQ(b.whyNot(w), c.why);
      EXPECT_EQ(b.programmer->counters().failedWrites, 3u);
      EXPECT_EQ(b.platform->groupsAllocated(), b.mrouteSwitch->zombieOifSet().size());
      EXPECT_EQ(b.hwStatus->routes(), 0u);
      // Only who waits for a group is helped by a review.
      b.mrouteSwitch->mrouteReviewKickIs(1);
      b.run();
      EXPECT_EQ(b.route(1)->state() == State::inHardware, c.kind == WriteKind::groupCreate);
      b.del(1);
      b.run();
      b.mrouteSwitch->zombieOifSetDelAll();
      b.platform->faults().failNext(c.kind, "parity error", 2);
      EXPECT_EQ(b.whyNot(w), "");
      EXPECT_EQ(b.programmer->counters().failedWrites, 5u);
   }
}

TEST(SyncRouteProgrammer, FastdropEntriesDropAndNoRpfRoutesAcceptFromAnywhere) {
   SyncBench b;
   WantedRoute w = SyncBench::wanted("23");
   w.fastdrop = {{et(5), Bridging::VlanIdOrNone(5u)}, {et(6), Bridging::VlanIdOrNone(6u)}};
   EXPECT_EQ(b.whyNot(w), "");
   EXPECT_EQ(b.receivers(1) + ' ' + b.receivers(1, 5) + ' ' + b.receivers(1, 7),
             "23 emptyGroup wrongVlan");
   EXPECT_EQ(b.chip->groups() + b.platform->emptySetsAllocated(), 1u);
   auto const status = b.hwStatus->vrfStatus(L3::VrfName("default"))->route(SyncBench::keyOf(1));
   EXPECT_EQ(status->fastdropLastPollTime().size(), 2u);
   Vel::MrouteSwitch const& sw = *b.mrouteSwitch;
   auto const five = sw.routeKeyToHandle({SyncBench::keyOf(1), Bridging::VlanIdOrNone(5u)});
   EXPECT_TRUE(sw.route(five)->fastdrop());
   w.fastdrop.pop_back();
   EXPECT_EQ(b.whyNot(w), "");
   EXPECT_EQ(status->fastdropLastPollTime().size(), 1u);
   EXPECT_EQ(b.receivers(1, 6), "wrongVlan");
   WantedRoute anywhere = SyncBench::wanted("23", 0);
   anywhere.noRpf = true;
   EXPECT_EQ(b.whyNot(anywhere), "");
   EXPECT_EQ(b.receivers(1, 1) + b.receivers(1, 5) + b.receivers(1, 7), "232323");
   EXPECT_EQ(b.chip->routes().size(), 1u);
}

TEST(SyncRouteProgrammer, ABatchIsCommittedOnceForEachPassThatWroteSomething) {
   SyncBench b({10, 1000, 0, 0});
   for (unsigned n = 0; n < RouteProgrammer::routesPerPass + 1; ++n)
      b.programmer->routeIs(SyncBench::vrfOf(1), testSupport::key(n ? 100 + n : 1),
                            SyncBench::wanted("23"));
   b.run();
   EXPECT_EQ(b.commits(), 2u);
   EXPECT_EQ(b.whyNot(SyncBench::wanted("23")), "");
   WantedRoute w = SyncBench::wanted("23");
   w.acceptingIntfId = et(3);
   EXPECT_EQ(b.whyNot(w), "");
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
