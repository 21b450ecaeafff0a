// The route programmers of both paths on the simulated chip, in virtual time: what they write, what
// they do without room and with failing writes, and a long random life.
#include <functional>
#include <random>
#include <set>

#include "RouteProgrammerBench.h"

namespace Agent {
namespace {

using Bench = BenchOn<AsyncSide>;

template <class Side>
class RouteProgrammers : public testing::Test {};
using Sides = testing::Types<AsyncSide, SyncSide>;
TYPED_TEST_SUITE(RouteProgrammers, Sides);

TYPED_TEST(RouteProgrammers, AChangeWritesExactlyWhatItMust) {
   BenchOn<TypeParam> b;
   b.play({
         {"1=23", "h", "10/110"},
         {"2=23", "hh", "00/110"},      // the same set
         {"1=23", "hh", "00/000"},      // again
         {"-1 1=23", "hh", "00/000"},   // gone and back in one pass
         {"1=4", "hh", "10/010"},       // a set of its own
         {"1=23", "hh", "00/010"},      // back to the shared one
         {"1=4", "hh", "00/010"},       // a zombie's set
         {"1=5 1=23", "hh", "00/010"},  // two changes in one pass
         {"purge", "hh", "01/000"},
         {"1=4@2", "hh", "10/111"},
         {"-1 -77", "-h", "00/001"},
   });
   EXPECT_EQ(b.programmer->counters().resurrections, 1u);

   // Properties of the entry; an interface that moves nothing in hardware is only published.
   WantedRoute w = Bench::wanted("23");
   w.rpaId = Wisp::Multicast::Fib::RpaIndex(7);
   b.set(2, w);
   b.drain();
   EXPECT_EQ(b.writes(), "00/111");
   w.acceptingIntfId = et(3);
   b.set(2, w);
   b.drain();
   EXPECT_EQ(b.writes(), "00/000");
   auto const vrfStatus = b.hwStatus->vrfStatus(L3::VrfName("default"));
   EXPECT_EQ(vrfStatus->route(Bench::keyOf(2))->acceptingIntfId(), et(3));
}

// Each write completes at an instant of its own; packets are sent at every one of them.
TEST(RouteProgrammer, AChangeIsMadeBeforeItIsBrokenAndAfterFailedWritesToo) {
   Bench b({}, 1e-5);
   b.now("1=23 2=23");
   struct Change {
      std::string oifs;
      unsigned vlan;
      std::optional<WriteKind> failing;  // twice
   };
   Change before{"23", 1, {}};
   for (Change const& c :
        {Change{"45", 1, {}}, Change{"23", 2, {}}, Change{"6", 3, {}},
         Change{"4", 3, WriteKind::groupCreate}, Change{"5", 3, WriteKind::routePoint}}) {
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

TYPED_TEST(RouteProgrammers, GroupsFitExactlyAndThoseThatWaitGoInInTheOrderOfArrival) {
   BenchOn<TypeParam> b({3, 100, 0, 0.001});
   // 8 shares; 9 would share with 4.
   b.play({{"1=1 2=2 3=3 4=4 5=5 6=6 7=45 8=3 9=4", "hhhgggghg", "30/440"}});
   EXPECT_TRUE(b.route(4)->reason().starts_with("no free multicast group"));
   EXPECT_EQ(b.programmer->counters().refusals, 5u);
   b.play({
         // Who comes in the same pass stays behind those that wait; who shares goes in with the
         // first.
         {"-1 10=7", "-hhhggghhg", "11/221"},
         // A waiting route that changes keeps its place, one that is withdrawn loses it.
         {"5=8 -6", "-hhhg-ghhg", "00/000"},
         {"6=6", "-hhhggghhg", "00/000"},
         {"-2", "--hhhgghhg", "11/111"},
         {"-5", "--hh-ghhhg", "11/111"},
         {"10=45", "--hh-ghhhh", "00/110"},  // which is in hardware by now and needs no group
         // Alone with its group, a changed route takes it for its new set; from a group that it
         // shares it must step aside.
         {"-10 7=17", "--hh-ghhh-", "11/112"},
         {"4=18", "--hg-ghhh-", "00/001"},
   });
   EXPECT_EQ(b.programmer->counters().purges, 4u);
}

TYPED_TEST(RouteProgrammers, EntriesFitExactlyAndThoseThatWaitGoInInTheOrderOfArrival) {
   BenchOn<TypeParam> b({100, 3, 0, 0.001});
   b.play({{"1=2 2=2 3=2 4=2 5=2 6=2 7=3", "hhheeee", "10/330"}});  // no group for those that wait
   EXPECT_TRUE(b.route(4)->reason().starts_with("no free route entry"));
   b.play({
         {"-2 8=2", "h-hheeee", "00/111"},
         // No room for two entries of one route: it steps aside for its own change.
         {"3=2@2", "h-hheeee", "00/111"},
         {"-5 -6 -1", "--hh--he", "10/111"},
   });
}

// Nor does its group become a zombie: whoever waits for one goes in.
TEST(RouteProgrammer, ARouteThatNeedsNoEntryTakesAGroupOnly) {
   Bench b({1, 100, 0, 0.001});
   WantedRoute w = Bench::wanted("4");
   w.set.typeIs(RouteKeyType::bridged);
   b.set(9, w);
   b.others = 1;
   b.play({{"1=2", "g-------h", "10/000"}});
   b.others = 0;
   b.play({{"-9", "h", "11/110"}});
}

TYPED_TEST(RouteProgrammers, ZombiesAreGivenUpOldestFirstAndNoMoreThanNeeded) {
   BenchOn<TypeParam> b({4, 100, 0, 0.001});
   for (char const* const changes : {"1=1 2=2 3=3 4=4", "-3", "-1", "-2"}) {
      b.now(changes);
      b.time->advance(0.1);
   }
   b.writes();
   b.play({{"5=5", "---hh", "11/110"},
           {"3=3 2=2", "-hhhh", "11/220"}});  // the zombie of 3 was the oldest
   EXPECT_EQ(b.programmer->counters().resurrections, 1u);
   // Room that nobody told of is found when the next route comes.
   b.now("-5 -4");
   b.platform->faults().groupsExhaustedIs(true);
   b.play({{"6=6", "-hh--g", "02/002"}});
   b.platform->faults().groupsExhaustedIs(false);
   b.play({{"7=7", "-hh--hh", "20/220"}});
}

TEST(RouteProgrammer, ARouteOfAnUnknownVrfWaitsUntilTheVrfIsReady) {
   Bench b;
   b.play({{"1=2 101=3", "h", "21/110"}});
   EXPECT_EQ(b.route(101)->reason(), "VRF red has no hardware status (failure code 4096)");
   b.vrfIs(100);
   b.play({{"", "h", "10/110"}});
}

TEST(RouteProgrammer, ARouteWhoseWritesKeepFailingIsGivenUpUntilItChanges) {
   for (auto const kind : {WriteKind::groupCreate, WriteKind::routeCreate, WriteKind::routePoint}) {
      SCOPED_TRACE(static_cast<unsigned>(kind));
      Bench b;
      auto& faults = b.platform->faults();
      b.now("1=2");
      faults.failNext(kind, "memory is broken", 1000);
      for (int again = 0; again < 2; ++again) {  // which is no change
         b.now(kind == WriteKind::routeCreate ? "1=3@2" : "1=3");
         EXPECT_EQ(b.route(1)->state(), State::failed);
         EXPECT_EQ(b.programmer->counters().failedWrites, AsyncRouteProgrammer::maxAttempts);
      }
      std::string const reason = b.route(1)->reason();
      EXPECT_TRUE(reason.starts_with("write failed 3 times: ")) << reason;
      EXPECT_TRUE(reason.ends_with("memory is broken")) << reason;
      faults.failNext(kind, "memory is broken", 2);
      b.now("1=34");
      EXPECT_EQ(b.receivers(1), "34");
   }
   // The attempts of what is wanted no more do not count for what is wanted now.
   Bench b;
   b.platform->faults().failNext(WriteKind::groupCreate, "parity error", 3);
   b.set(1, "2");
   b.time->runUntil(0.0005);
   b.play({{"1=3", "h", "10/413"}});
   // Nor does a route go back to an entry that was never there.
   b.platform->faults().failNext(WriteKind::routeCreate, "parity error");
   b.set(1, "4", 2);
   b.time->runUntil(b.time->now() + 0.0005);
   b.play({{"1=3@2", "h", "10/111"}});
}

// Watches the hardware status, as the routing layer does, and interferes once.
class Meddler final : public Hw::VrfStatus::Notifiee {
 public:
   void onRoute(IpGenRouteKey const&) override {
      if (auto const todo = std::exchange(act, nullptr)) todo();
   }
   std::function<void()> act;
};

TYPED_TEST(RouteProgrammers, HandlersMayChangeTheVeryRouteThatIsBeingProgrammed) {
   BenchOn<TypeParam> b;
   Meddler meddler;
   meddler.notifierIs(b.hwStatus->vrfStatusIs(L3::VrfName("default")));
   meddler.act = [&] { b.del(1); };  // while it is being placed
   b.now("1=2");
   EXPECT_EQ(b.receivers(1), "noRoute");
   b.now("1=3");
   meddler.act = [&] { b.set(1, "4"); };  // while it is being taken out
   b.now("-1");
   EXPECT_EQ(b.receivers(1), "4");
}

TYPED_TEST(RouteProgrammers, TakesEverythingOutOfTheChipWhenItGoes) {
   BenchOn<TypeParam> b;
   b.now("1=2 2=2@2 3=3");
   b.set(4, "4");  // still to be written
   b.set(1, "5");
   b.time->runUntil(b.time->now());
   auto const record = b.route(3)->record();
   b.programmer = nullptr;
   EXPECT_EQ(b.platform->routesAllocated() + b.hwStatus->routes(), 0u);
   EXPECT_EQ(b.platform->groupsAllocated(), 1 + b.mrouteSwitch->zombieOifSet().size());
   b.mrouteSwitch = nullptr;
   b.time->runUntil(Qor::never);
   EXPECT_EQ(b.chip->routes().size(), 0u);
   // The group that is held from outside stays; the synchronous platform clears its chip.
   EXPECT_EQ(b.chip->groups(), (std::is_same_v<TypeParam, AsyncSide>));
}

// A long random life: beside what a bench expects, nobody waits for what there is.
template <class Side>
class RandomLife {
 public:
   explicit RandomLife(unsigned seed)
         : random_(seed), b_({8, 14, 0, 0.001}, seed % 2 ? 0 : 1e-5), faulty_(seed % 3 != 0) {
      b_.vrfIs(100);
      b_.platform->faults().seedIs(seed);
   }

   void live(unsigned operations) {
      for (unsigned i = 0; i < operations && !testing::Test::HasFailure(); ++i) {
         if (i % 100 == 0) faultsAre(faulty_ && pick(2));
         operate();
         if (pick(3) == 0) b_.time->runUntil(b_.time->now() + 0.0004 * pick(8));
         if (pick(40) == 0) expectNobodyWaitsInVain();
      }
      faultsAre(false);
      while (!b_.wishes.empty())
         b_.del(b_.wishes.begin()->first);
      b_.drain();
      EXPECT_EQ(b_.platform->routesAllocated() + b_.programmer->waiting(), 0u);
      b_.mrouteSwitch->zombieOifSetDelAll();
      b_.drain();
      EXPECT_EQ(b_.platform->groupsAllocated(), 0u);
   }

 private:
   unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }

   void faultsAre(bool on) {
      for (std::size_t kind = 0; kind < Sim::writeKinds; ++kind)
         b_.platform->faults().rateIs(static_cast<WriteKind>(kind), on ? 0.15 : 0);
   }

   void operate() {
      unsigned const n = pick(20) + 100 * pick(2), what = pick(12);
      if (what == 0) {
         b_.platform->faults().slowNext(1 + pick(3), 0.01);
      } else if (what == 1) {
         b_.mrouteSwitch->zombieOifSetDelAll();
      } else if (what < 5) {
         b_.del(n);
      } else {
         char const* const oifs[] = {"", "2", "3", "23", "4", "45", "6", "7", "78", "2345678"};
         b_.set(n, oifs[pick(10)], 1 + pick(2));
      }
   }

   void expectNobodyWaitsInVain() {
      if constexpr (std::is_same_v<Side, SyncSide>) {
         // What failed waits for the next review.
         faultsAre(false);
         b_.mrouteSwitch->mrouteReviewKickIs(b_.mrouteSwitch->mrouteReviewKick() + 1);
      }
      b_.drain();
      std::set<std::string> shared, waiting;  // sets: of routes in hardware, as far as sharable
      bool const entriesFull = b_.platform->routesAllocated() == b_.chip->config().routes;
      for (auto const& [n, wish] : b_.wishes) {
         auto const* const route = b_.route(n);
         if (route->state() == State::inHardware) {
            auto const record =
                  Qor::ptrCast<typename Side::Switch::RecordPtr::element_type>(route->record());
            if (!record->dirty()) shared.insert(wish.oifs);
         } else if (route->state() == State::waitingGroup) {
            waiting.insert(wish.oifs);
            EXPECT_EQ(b_.platform->groupsAllocated(), b_.chip->config().groups);
            EXPECT_TRUE(b_.mrouteSwitch->zombieOifSet().empty());
         } else {
            EXPECT_TRUE(route->state() == State::waitingEntry ? entriesFull : faulty_);
         }
      }
      for (auto const& set : waiting)
         EXPECT_TRUE(entriesFull || !shared.contains(set)) << set << " could be shared";
   }

   std::mt19937 random_;
   BenchOn<Side> b_;
   bool const faulty_;
};

TYPED_TEST(RouteProgrammers, ForwardWhatIsWantedThroughALongRandomLife) {
   for (unsigned seed = 1; seed <= 12 && !this->HasFailure(); ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      RandomLife<TypeParam>(seed).live(3000);
   }
}

}  // namespace
}  // namespace Agent
