// The programmer on both paths of the simulated chip, in virtual time: writes, full tables and
// failed writes. The soaks play random lives.
#include <algorithm>
#include <functional>

#include "ProgrammerBench.h"

namespace VelMroute {
namespace {

using Bench = BenchOn<AsyncSide>;

template <class Side>
class Programmers : public testing::Test {};
using Sides = testing::Types<AsyncSide, SyncSide>;
TYPED_TEST_SUITE(Programmers, Sides);

TYPED_TEST(Programmers, AChangeMakesOnlyTheNecessaryWrites) {
   BenchOn<TypeParam> b;
   char const both[] = "inHardware 1 2";
   b.play({
         {"1 to et2 et3", "inHardware 1", "1 groupCreate, 1 routeCreate, 1 routePoint"},
         {"2 to et2 et3", both, "1 routeCreate, 1 routePoint"},  // a shared set
         {"1 to et2 et3", both, "none"},                         // an unchanged update
         {"withdraw 1; 1 to et2 et3", both, "none"},             // a route that returns in one pass
         {"1 to et4", both, "1 groupCreate, 1 routePoint"},      // a set without another route
         {"1 to et2 et3", both, "1 routePoint"},                 // the shared set
         {"1 to et4", both, "1 routePoint"},                     // the set of a zombie
         {"1 to et5; 1 to et2 et3", both, "1 routePoint"},       // two changes in one pass
         {"purge zombies", both, "1 groupDelete"},
         {"1 to et4 in vlan 2", both, "1 groupCreate, 1 routeCreate, 1 routePoint, 1 routeDelete"},
         {"withdraw 1; withdraw 77", "inHardware 2", "1 routeDelete"},
   });
   EXPECT_EQ(b.programmer->counters().resurrections, 1u);

   // The RP index is a property of the entry.
   WantedRoute w = b.wanted("et2 et3");
   w.rpaId = Wisp::Multicast::Fib::RpaIndex(7);
   b.set(2, w);
   b.drain();
   EXPECT_EQ(b.writes(), "1 routeCreate, 1 routePoint, 1 routeDelete");
}

// A step takes several calls of hooks, and a pass of 2 ms has room for few steps.
TYPED_TEST(Programmers, APassOfSlowHooksEndsWithinItsBudget) {
   BenchOn<TypeParam> b({}, 1e-4);
   for (unsigned n = 1; n <= 20; ++n)
      b.set(n, "et2 et" + std::to_string(3 + n % 5));
   for (unsigned turns = 0; !b.programmer->settled(); ++turns) {
      ASSERT_LT(turns, 1000u);
      b.time->advance(std::max(0.0, b.time->nextDeadline() - Qor::now()));
      Qor::Seconds const begun = Qor::now();
      b.time->runDue();
      EXPECT_LE(Qor::now() - begun, 1.2 * Programmer::Options().passBudget) << turns;
   }
   b.drain();
}

// The call cost gives each write its own time of completion; the test sends packets at each.
TEST(Programmer, AChangeIsMadeBeforeTheOldStateIsBrokenEvenAfterFailedWrites) {
   Bench b({}, 1e-5);
   b.now("1 to et2 et3; 2 to et2 et3");
   struct Change {
      std::string oifs;
      unsigned vlan;
      std::optional<WriteKind> failing;  // fails twice
   };
   Change before{"et2 et3", 1, {}};
   for (Change const& c :
        {Change{"et4 et5", 1, {}}, Change{"et2 et3", 2, {}}, Change{"et6", 3, {}},
         Change{"et4", 3, WriteKind::groupCreate}, Change{"et5", 3, WriteKind::routePoint}}) {
      if (c.failing) b.platform->faults().failNext(*c.failing, "parity error", 2);
      b.set(1, c.oifs, c.vlan);
      for (bool done = false; b.time->nextDeadline() < Qor::never;) {
         b.time->runUntil(b.time->nextDeadline());
         done = done || b.receivers(1, c.vlan) == c.oifs;
         EXPECT_TRUE(done || b.receivers(1, before.vlan) == before.oifs) << c.oifs;
      }
      b.drain();
      before = c;
   }
   EXPECT_EQ(b.programmer->counters().failedWrites, 4u);
}

TYPED_TEST(Programmers, GroupsFitExactlyAndWaitingRoutesGetRoomInTheOrderOfArrival) {
   BenchOn<TypeParam> b({.groups = 3});
   // Route 8 shares a group. Route 9 would share with route 4, which waits.
   b.play(
         {{"1 to et1; 2 to et2; 3 to et3; 4 to et4; 5 to et5; 6 to et6; 7 to et4 et5; 8 to et3;"
           "9 to et4",
           "inHardware 1 2 3 8; waitingGroup 4 5 6 7 9",
           "3 groupCreate, 4 routeCreate, 4 routePoint"}});
   EXPECT_TRUE(b.route(4)->reason().starts_with("no free multicast group"));
   EXPECT_EQ(b.programmer->counters().refusals, 5u);
   char const replaced[] =
         "1 groupCreate, 1 groupDelete, 1 routeCreate, 1 routePoint, 1 routeDelete";
   b.play({
         // A new route stays behind the waiting routes. A route that shares the set of the first
         // waiting route is programmed together with it.
         {"withdraw 1; 10 to et7", "inHardware 2 3 4 8 9; waitingGroup 5 6 7 10",
          "1 groupCreate, 1 groupDelete, 2 routeCreate, 2 routePoint, 1 routeDelete"},
         // A waiting route keeps its place when it changes, and loses it when it is withdrawn.
         {"5 to et8; withdraw 6", "inHardware 2 3 4 8 9; waitingGroup 5 7 10", "none"},
         {"6 to et6", "inHardware 2 3 4 8 9; waitingGroup 5 6 7 10", "none"},
         {"withdraw 2", "inHardware 3 4 5 8 9; waitingGroup 6 7 10", replaced},
         {"withdraw 5", "inHardware 3 4 7 8 9; waitingGroup 6 10", replaced},
         // The set of route 7 is in hardware, so the route needs no group.
         {"10 to et4 et5", "inHardware 3 4 7 8 9 10; waitingGroup 6",
          "1 routeCreate, 1 routePoint"},
         // A route that has its group alone gives the group up for its new set. A route that shares
         // its group must wait instead.
         {"withdraw 10; 7 to et1 et7", "inHardware 3 4 7 8 9; waitingGroup 6",
          "1 groupCreate, 1 groupDelete, 1 routeCreate, 1 routePoint, 2 routeDelete"},
         {"4 to et1 et8", "inHardware 3 7 8 9; waitingGroup 4 6", "1 routeDelete"},
   });
   EXPECT_EQ(b.programmer->counters().purges, 4u);
}

TYPED_TEST(Programmers, EntriesFitExactlyAndWaitingRoutesGetRoomInTheOrderOfArrival) {
   BenchOn<TypeParam> b({.groups = 100, .routes = 3});
   // A waiting route has no group.
   b.play({{"1 to et2; 2 to et2; 3 to et2; 4 to et2; 5 to et2; 6 to et2; 7 to et3",
            "inHardware 1 2 3; waitingEntry 4 5 6 7",
            "1 groupCreate, 3 routeCreate, 3 routePoint"}});
   EXPECT_TRUE(b.route(4)->reason().starts_with("no free route entry"));
   b.play({
         {"withdraw 2; 8 to et2", "inHardware 1 3 4; waitingEntry 5 6 7 8",
          "1 routeCreate, 1 routePoint, 1 routeDelete"},
         // The table has no room for two entries of route 3, so the old entry is deleted first.
         {"3 to et2 in vlan 2", "inHardware 1 3 4; waitingEntry 5 6 7 8",
          "1 routeCreate, 1 routePoint, 1 routeDelete"},
         {"withdraw 5; withdraw 6; withdraw 1", "inHardware 3 4 7; waitingEntry 8",
          "1 groupCreate, 1 routeCreate, 1 routePoint, 1 routeDelete"},
   });
}

// The group of the withdrawn route does not stay as a zombie, because another route waits for it.
TEST(Programmer, ARouteThatNeedsNoEntryTakesAGroupOnly) {
   Bench b({.groups = 1});
   WantedRoute w = b.wanted("et4");
   w.bridge = true;  // this platform needs no entry for it
   b.set(9, w);
   b.others = 1;
   b.play({{"1 to et2", "waitingGroup 1", "1 groupCreate"}});
   EXPECT_EQ(b.route(9)->state(), State::inHardware);
   b.others = 0;
   // The route gets an entry when it needs one, and gives it up when it does not.
   b.set(9, "et4");
   b.drain();
   EXPECT_EQ(b.receivers(9), "et4");
   b.wishes.erase(9);
   b.set(9, w);
   b.pass();
   EXPECT_EQ(b.route(9)->state(), State::inHardware);
   EXPECT_EQ(b.chip->routes().size(), 0u);
   b.writes();
   b.play({{"withdraw 9", "inHardware 1",
            "1 groupCreate, 1 groupDelete, 1 routeCreate, 1 routePoint"}});
}

TYPED_TEST(Programmers, ZombiesArePurgedOldestFirstAndOnlyAsManyAsNeeded) {
   BenchOn<TypeParam> b({.groups = 4});
   for (char const* const changes :
        {"1 to et1; 2 to et2; 3 to et3; 4 to et4", "withdraw 3", "withdraw 1", "withdraw 2"}) {
      b.now(changes);
      b.time->advance(0.1);
   }
   b.writes();
   b.play(
         {{"5 to et5", "inHardware 4 5",
           "1 groupCreate, 1 groupDelete, 1 routeCreate, 1 routePoint"},
          // The zombie of route 3 was the oldest and is gone. The zombie of route 2 is resurrected.
          {"3 to et3; 2 to et2", "inHardware 2 3 4 5",
           "1 groupCreate, 1 groupDelete, 2 routeCreate, 2 routePoint"}});
   EXPECT_EQ(b.programmer->counters().resurrections, 1u);
   // The arrival of the next route finds room that was not announced.
   b.now("withdraw 5; withdraw 4");
   b.platform->faults().groupsExhaustedIs(true);
   b.play({{"6 to et6", "inHardware 2 3; waitingGroup 6", "2 groupDelete, 2 routeDelete"}});
   b.platform->faults().groupsExhaustedIs(false);
   b.play({{"7 to et7", "inHardware 2 3 6 7", "2 groupCreate, 2 routeCreate, 2 routePoint"}});
}

TEST(Programmer, ARouteWhoseWritesKeepFailingIsGivenUpUntilItChanges) {
   for (auto const kind : {WriteKind::groupCreate, WriteKind::routeCreate, WriteKind::routePoint}) {
      SCOPED_TRACE(static_cast<unsigned>(kind));
      Bench b;
      auto& faults = b.platform->faults();
      b.now("1 to et2");
      faults.failNext(kind, "memory is broken", 1000);
      for (int again = 0; again < 2; ++again) {  // the second update changes nothing
         b.now(kind == WriteKind::routeCreate ? "1 to et3 in vlan 2" : "1 to et3");
         EXPECT_EQ(b.route(1)->state(), State::failed);
         EXPECT_EQ(b.programmer->counters().failedWrites, b.mrouteTable->attempts());
      }
      std::string const reason = b.route(1)->reason();
      EXPECT_TRUE(reason.starts_with("write failed 3 times: ")) << reason;
      EXPECT_TRUE(reason.ends_with("memory is broken")) << reason;
      faults.failNext(kind, "memory is broken", 2);
      b.now("1 to et3 et4");
      EXPECT_EQ(b.receivers(1), "et3 et4");
   }
   // The failed attempts of an earlier wanted state do not count for the present one.
   Bench b;
   b.platform->faults().failNext(WriteKind::groupCreate, "parity error", 3);
   b.set(1, "et2");
   b.time->runUntil(0.0005);
   b.play({{"1 to et3", "inHardware 1",
            "1 groupCreate, 4 routeCreate, 1 routePoint, 3 routeDelete"}});
   // A route does not return to an entry whose creation failed.
   b.platform->faults().failNext(WriteKind::routeCreate, "parity error");
   b.set(1, "et4", 2);
   b.time->runUntil(b.time->now() + 0.0005);
   b.play({{"1 to et3 in vlan 2", "inHardware 1",
            "1 groupCreate, 1 routeCreate, 1 routePoint, 1 routeDelete"}});
}

// Watches the hardware status, as the routing layer does, and calls `act` once.
class Meddler final : public Hw::VrfStatus::Notifiee {
 public:
   void onRoute(IpGenRouteKey const&) override {
      if (auto const todo = std::exchange(act, nullptr)) todo();
   }
   std::function<void()> act;
};

TYPED_TEST(Programmers, AHandlerMayChangeTheRouteThatIsBeingProgrammed) {
   BenchOn<TypeParam> b;
   Meddler meddler;
   meddler.notifierIs(b.hwStatus->vrfStatusIs(L3::VrfName("default")));
   meddler.act = [&] { b.del(1); };  // during the allocation
   b.now("1 to et2");
   EXPECT_EQ(b.receivers(1), "noRoute");
   b.now("1 to et3");
   meddler.act = [&] { b.set(1, "et4"); };  // during the removal
   b.now("withdraw 1");
   EXPECT_EQ(b.receivers(1), "et4");
}

}  // namespace
}  // namespace VelMroute
