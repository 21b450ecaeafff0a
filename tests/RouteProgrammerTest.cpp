// The route programmer on the asynchronous platform of the simulated chip, in virtual time: what it
// writes, what it does without room and with failing writes, and a long random life.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "Routing/Hardware/RouteStatus.h"
#include "agent/AsyncRouteProgrammer.h"
#include "platform/sim/AsyncPlatform.h"

namespace Agent {
namespace {

using Lnet::IntfId;
using Lnet::IpGenAddr;
using MrouteLib::PortVlan;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;
using Sim::WriteKind;
using State = RouteProgrammer::State;
namespace Hw = Routing::Multicast::Fib::Hardware;

// The routing side of one test: route n is (10.0.0.1, 239.0.0.n).
class Bench {
 public:
   explicit Bench(Sim::ChipConfig const& config = {}, Qor::Seconds callCost = 0) {
      Qor::activityManagerIs(time);
      chip = Qor::make<Sim::Chip>(config);
      for (unsigned i = 1; i <= 8; ++i)
         EXPECT_EQ(chip->portAdd(et(i), i, Bridging::VlanIdOrNone(Qor::U64{i})), "");
      Sim::AsyncPlatformConfig platformConfig;
      platformConfig.callCost = callCost;
      platformConfig.noIngressTypes = {RouteKeyType::bridged};
      platform = Qor::make<Sim::AsyncPlatform>("sim", chip, platformConfig);
      routeStatus = Qor::make<Routing::Hardware::RouteStatus>();
      routeStatus->newVrfStatus(L3::VrfName("default"), Vel::VrfId(0));
      mrouteSwitch = Vel::Mroute::asyncMrouteSwitchFactory("switch1", routeStatus, platform);
      programmer = std::make_unique<AsyncRouteProgrammer>(
            mrouteSwitch, Qor::make<MrouteLib::MrouteTableColl>(), hwStatus);
   }
   ~Bench() {
      programmer = nullptr;
      mrouteSwitch = nullptr;
      platform = nullptr;
      Qor::activityManagerIs(nullptr);
   }

   static IntfId et(unsigned i) { return IntfId("et" + std::to_string(i)); }
   static IpGenRouteKey key(unsigned n) {
      return IpGenRouteKey::fromAddresses(IpGenAddr::v4(0x0a000001), IpGenAddr::v4(0xef000000 + n));
   }
   // `oifs` as digits: "23" is et2 and et3.
   static WantedRoute wanted(std::string const& oifs, unsigned vlan = 1) {
      WantedRoute w;
      w.acceptingIntfId = et(vlan);
      w.acceptingVlan = Bridging::VlanIdOrNone(Qor::U64{vlan});
      w.set.typeIs(RouteKeyType::routed);
      for (char const c : oifs)
         w.set.newPortVlan(PortVlan(et(static_cast<unsigned>(c - '0'))), true);
      return w;
   }
   void set(unsigned n, std::string const& oifs, unsigned vlan = 1, char const* vrf = "default") {
      programmer->routeIs(L3::VrfName(vrf), key(n), wanted(oifs, vlan));
   }
   void del(unsigned n, char const* vrf = "default") {
      programmer->routeDel(L3::VrfName(vrf), key(n));
   }
   RouteProgrammer::Route const* route(unsigned n, char const* vrf = "default") const {
      return programmer->route(L3::VrfName(vrf), key(n));
   }
   void drain() {
      time->runUntil(Qor::never);
      EXPECT_TRUE(programmer->settled());
      EXPECT_EQ(platform->audit(), std::vector<std::string>());
   }
   // Who gets the packets of route n: "23"; or why nobody does.
   std::string receivers(unsigned n, unsigned vlan = 1, Qor::U32 vrf = 0) {
      auto const out = chip->forward({vrf, key(n).source().address(), key(n).group().address(),
                                      Bridging::VlanIdOrNone(Qor::U64{vlan})});
      std::ostringstream os;
      if (out.result != Sim::Forwarding::forwarded) os << out.result;
      for (PortVlan const& copy : out.copies)
         os << copy.intfId().name().substr(2);
      return os.str();
   }
   // The chip writes since the last call: groups created and deleted / routes created, pointed and
   // deleted.
   std::string writes() {
      std::string text;
      for (auto const kind :
           {WriteKind::groupCreate, WriteKind::groupDelete, WriteKind::routeCreate,
            WriteKind::routePoint, WriteKind::routeDelete}) {
         Qor::U64 const before = std::exchange(counted_[kind], chip->writes(kind));
         if (kind == WriteKind::routeCreate) text += '/';
         text += std::to_string(counted_[kind] - before);
      }
      return text;
   }
   // The first letters of the states of the routes from..to, waiting ones by what they wait for:
   // "hhge-f"; "-" for a route that is not wanted.
   std::string states(unsigned from, unsigned to) const {
      std::string letters;
      for (unsigned n = from; n <= to; ++n)
         letters += route(n) ? "mphgebvf"[static_cast<unsigned>(route(n)->state())] : '-';
      return letters;
   }
   // Sets and withdraws routes in one pass, and lets everything settle: "1=23 2=4@2 -3" gives route
   // 1 two outputs and route 2 another vlan, and takes 3 away.
   void now(std::string const& changes) {
      std::istringstream in(changes);
      for (std::string word; in >> word;) {
         unsigned n = 0, vlan = 1;
         char oifs[16] = "";
         if (std::sscanf(word.c_str(), "-%u", &n) == 1) {
            del(n);
         } else if (std::sscanf(word.c_str(), "%u=%15[0-9]@%u", &n, oifs, &vlan) > 1) {
            set(n, oifs, vlan);
         }
      }
      drain();
   }

   Qor::Ptr<Qor::ActivityManager> time =
         Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime);
   Qor::Ptr<Sim::Chip> chip;
   Qor::Ptr<Sim::AsyncPlatform> platform;
   Qor::Ptr<Routing::Hardware::RouteStatus> routeStatus;
   Qor::Ptr<Vel::Mroute::AsyncMrouteSwitch> mrouteSwitch;
   Qor::Ptr<Hw::Status> hwStatus = Qor::make<Hw::Status>();
   std::unique_ptr<AsyncRouteProgrammer> programmer;

 private:
   std::map<WriteKind, Qor::U64> counted_;
};

TEST(RouteProgrammer, AChangeWritesExactlyWhatItMust) {
   Bench b;
   struct Step {
      char const* changes;
      char const* writes;
      char const* receivers;
   };
   Step const steps[] = {
         {"1=23", "10/110", "23"},        {"2=23", "00/110", "23"},  // the same set
         {"1=23", "00/000", "23"},                                   // again
         {"-1 1=23", "00/000", "23"},                                // gone and back in one pass
         {"1=4", "10/010", "4"},                                     // a set of its own
         {"1=23", "00/010", "23"},                                   // back to the shared one
         {"1=4", "00/010", "4"},                                     // a zombie's set
         {"1=5 1=23", "00/010", "23"},                               // two changes in one pass
         {"purge", "01/000", "23"},                                  // all zombies
         {"1=4", "10/010", "4"},          {"1=4@2", "00/111", "wrongVlan"},
         {"1=5", "10/111", "5"},  // vlan and set
         {"-1 -77", "00/001", "noRoute"},
   };
   for (Step const& step : steps) {
      SCOPED_TRACE(step.changes);
      if (step.changes == std::string("purge")) b.mrouteSwitch->zombieOifSetDelAll();
      b.now(step.changes);
      EXPECT_EQ(b.writes(), step.writes);
      EXPECT_EQ(b.receivers(1), step.receivers);
   }
   EXPECT_EQ(b.programmer->counters().resurrections, 1u);

   // Properties of the entry; an interface that moves nothing in hardware is only published.
   WantedRoute w = Bench::wanted("23");
   auto const expectWrites = [&](char const* writes) {
      b.programmer->routeIs(L3::VrfName("default"), Bench::key(2), w);
      b.drain();
      EXPECT_EQ(b.writes(), writes);
   };
   w.bridgeAction = true;
   expectWrites("00/111");
   w.rpaId = Wisp::Multicast::Fib::RpaIndex(7);
   expectWrites("00/111");
   w.acceptingIntfId = Bench::et(3);
   expectWrites("00/000");
   auto const vrfStatus = b.hwStatus->vrfStatus(L3::VrfName("default"));
   EXPECT_EQ(vrfStatus->route(Bench::key(2))->acceptingIntfId(), Bench::et(3));
   EXPECT_EQ(vrfStatus->route().size(), 1u);
}

// Each write completes at an instant of its own; packets are sent at every one of them.
TEST(RouteProgrammer, AChangeIsMadeBeforeItIsBroken) {
   Bench b({}, 1e-5);
   b.now("1=23");
   struct Change {
      char const* oifs;
      unsigned vlan;
      Qor::U32 mostEntries;
   };
   unsigned vlan = 1;
   std::string before = "23";
   for (Change const& c : {Change{"45", 1, 1}, Change{"23", 2, 2}, Change{"6", 3, 2},
                           Change{"", 3, 1}, Change{"78", 3, 1}}) {
      b.set(1, c.oifs, c.vlan);
      std::string const after = *c.oifs ? c.oifs : "emptyGroup";
      Qor::U32 mostEntries = 0;
      while (b.time->nextDeadline() < Qor::never) {
         b.time->runUntil(b.time->nextDeadline());
         mostEntries = std::max(mostEntries, b.chip->routes().size());
         EXPECT_TRUE(b.receivers(1, vlan) == before || b.receivers(1, c.vlan) == after) << after;
      }
      EXPECT_EQ(mostEntries, c.mostEntries);
      EXPECT_EQ(b.receivers(1, c.vlan), after);
      before = after;
      vlan = c.vlan;
   }
}

TEST(RouteProgrammer, GroupsFitExactlyAndThoseThatWaitGoInInTheOrderOfArrival) {
   Bench b({3, 100, 0, 0.001});
   b.now("1=1 2=2 3=3 4=4 5=5 6=6 7=45 8=3 9=4");  // 8 shares; 9 would share with 4
   EXPECT_EQ(b.states(1, 9), "hhhgggghg");
   EXPECT_EQ(b.route(4)->reason(),
             "no free multicast group (failure code 8); waits for a deletion");
   EXPECT_EQ(b.programmer->counters().refusals, 5u);
   EXPECT_EQ(b.hwStatus->routes(), 4u);
   b.writes();
   // Who comes in the same pass stays behind those that wait, and who shares goes in with the
   // first.
   b.now("-1 10=7");
   EXPECT_EQ(b.states(4, 10), "hggghhg");
   EXPECT_EQ(b.writes(), "11/221");
   EXPECT_EQ(b.programmer->counters().purges, 1u);
   // A waiting route that changes keeps its place, one that is withdrawn loses it.
   b.now("5=8 -6");
   b.now("6=6");
   b.now("-2");
   EXPECT_EQ(b.receivers(5), "8");
   b.now("-5");
   EXPECT_EQ(b.receivers(7), "45");
   EXPECT_EQ(b.states(4, 10), "h-ghhhg");
   b.now("10=45");  // which is in hardware by now and needs no group
   EXPECT_EQ(b.receivers(10), "45");
   // Alone with its group, a changed route gives it up for the next; from a group that it shares it
   // must step aside.
   b.now("-10 7=17");
   EXPECT_EQ(b.receivers(7), "17");
   b.now("4=18");
   EXPECT_EQ(b.states(4, 9), "g-ghhh");
   EXPECT_EQ(b.receivers(4), "noRoute");
   EXPECT_EQ(b.receivers(9), "4");
}

TEST(RouteProgrammer, EntriesFitExactlyAndThoseThatWaitGoInInTheOrderOfArrival) {
   Bench b({100, 3, 0, 0.001});
   b.now("1=2 2=2 3=2 4=2 5=2 6=2 7=3");
   EXPECT_EQ(b.states(1, 7), "hhheeee");
   EXPECT_EQ(b.route(4)->reason(), "no free route entry (failure code 1024); waits for a deletion");
   EXPECT_EQ(b.platform->groupsAllocated(), 1u);  // none is kept for a route that waits
   b.now("-2 8=2");
   EXPECT_EQ(b.states(1, 8), "h-hheeee");
   // No room for two entries of one route: it steps aside for its own change.
   b.writes();
   b.now("3=2@2");
   EXPECT_EQ(b.receivers(3, 2), "2");
   EXPECT_EQ(b.writes(), "00/111");
   b.now("-5 -6 -1");
   EXPECT_EQ(b.receivers(7), "3");
}

TEST(RouteProgrammer, ZombiesAreGivenUpOldestFirstAndNoMoreThanNeeded) {
   Bench b({4, 100, 0, 0.001});
   b.now("1=1 2=2 3=3 4=4");
   for (char const* gone : {"-3", "-1", "-2"}) {
      b.now(gone);
      b.time->advance(0.1);
   }
   b.now("5=5");
   b.now("3=3 2=2");  // the zombie of 3 was the oldest, that of 2 is still there
   auto const& counters = b.programmer->counters();
   EXPECT_EQ(counters.purges, 2u);
   EXPECT_EQ(counters.resurrections, 1u);
   // Room that nobody told of is found when the next route comes.
   b.now("-5 -4");
   b.platform->faults().groupsExhaustedIs(true);
   b.now("6=6");
   EXPECT_EQ(b.states(6, 6), "g");
   b.platform->faults().groupsExhaustedIs(false);
   b.now("7=7");
   EXPECT_EQ(b.states(6, 7), "hh");
}

// Its group is in use though no entry points at it, and it never becomes a zombie.
TEST(RouteProgrammer, ARouteThatNeedsNoEntryTakesAGroupOnly) {
   Bench b({1, 0, 0, 0.001});
   WantedRoute w = Bench::wanted("2");
   w.set.typeIs(RouteKeyType::bridged);
   b.programmer->routeIs(L3::VrfName("default"), Bench::key(1), w);
   b.drain();
   EXPECT_EQ(b.states(1, 1), "h");
   b.now("-1");
   EXPECT_EQ(b.writes(), "11/000");
}

TEST(RouteProgrammer, ARouteOfAnUnknownVrfWaitsUntilTheVrfIsReady) {
   Bench b;
   b.set(1, "2", 1, "red");
   b.drain();
   EXPECT_EQ(b.route(1, "red")->state(), State::waitingVrf);
   EXPECT_EQ(b.route(1, "red")->reason(), "VRF red has no hardware status (failure code 4096)");
   b.routeStatus->newVrfStatus(L3::VrfName("red"), Vel::VrfId(5));
   b.programmer->vrfReady(L3::VrfName("red"));
   b.drain();
   EXPECT_EQ(b.receivers(1, 1, 5), "2");
}

TEST(RouteProgrammer, AFailedWriteIsTriedAgainAndTheOldSetForwardsMeanwhile) {
   Bench b;
   auto& faults = b.platform->faults();
   faults.failNext(WriteKind::groupCreate, "parity error");
   b.now("1=23 2=23 3=23");  // the three are about to share the group
   EXPECT_EQ(b.writes(), "10/633");
   EXPECT_EQ(b.programmer->counters().failedWrites, 3u);
   EXPECT_EQ(b.route(1)->record(), b.route(3)->record());

   std::string before = "23";
   for (auto const& [kind, oifs] :
        {std::pair(WriteKind::groupCreate, "4"), std::pair(WriteKind::routePoint, "5")}) {
      faults.failNext(kind, "parity error", 2);
      b.set(1, oifs);
      for (bool done = false; b.time->nextDeadline() < Qor::never;) {
         b.time->runUntil(b.time->nextDeadline());
         done = done || b.receivers(1) == oifs;
         EXPECT_EQ(b.receivers(1), done ? oifs : before);
      }
      b.drain();
      EXPECT_EQ(b.receivers(1), before = oifs);
   }
   EXPECT_EQ(b.receivers(2), "23");
   EXPECT_EQ(b.programmer->counters().failedWrites, 7u);
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
         EXPECT_EQ(b.states(1, 1), "f");
         EXPECT_EQ(b.programmer->counters().failedWrites, AsyncRouteProgrammer::maxAttempts);
      }
      std::string const reason = b.route(1)->reason();
      EXPECT_TRUE(reason.starts_with("write failed 3 times: ")) << reason;
      EXPECT_TRUE(reason.ends_with("memory is broken")) << reason;
      EXPECT_EQ(b.receivers(1), "noRoute");
      EXPECT_EQ(b.hwStatus->routes(), 0u);
      faults.failNext(kind, "memory is broken", 2);
      b.now("1=34");
      EXPECT_EQ(b.receivers(1), "34");
   }
   // The attempts of what is wanted no more do not count for what is wanted now.
   Bench b;
   b.platform->faults().failNext(WriteKind::groupCreate, "parity error", 3);
   b.set(1, "2");
   b.time->runUntil(0.0005);
   b.now("1=3");
   EXPECT_EQ(b.receivers(1), "3");
}

// Watches the hardware status, as the routing layer does, and interferes once.
class Meddler final : public Hw::VrfStatus::Notifiee {
 public:
   void onRoute(IpGenRouteKey const&) override {
      if (auto const todo = std::exchange(act, nullptr)) todo();
   }
   std::function<void()> act;
};

TEST(RouteProgrammer, HandlersMayChangeTheVeryRouteThatIsBeingProgrammed) {
   Bench b;
   Meddler meddler;
   meddler.notifierIs(b.hwStatus->vrfStatusIs(L3::VrfName("default")));
   meddler.act = [&] { b.del(1); };  // while it is being placed
   b.now("1=2");
   EXPECT_EQ(b.programmer->routes(), 0u);
   EXPECT_EQ(b.receivers(1), "noRoute");
   b.now("1=3");
   meddler.act = [&] { b.set(1, "4"); };  // while it is being taken out
   b.now("-1");
   ASSERT_TRUE(b.route(1));
   EXPECT_EQ(b.receivers(1), "4");
}

TEST(RouteProgrammer, TakesEverythingOutOfTheChipWhenItGoes) {
   Bench b;
   b.now("1=2 2=2@2 3=3");
   b.set(4, "4");  // still to be written
   b.set(1, "5");
   b.time->runUntil(b.time->now());
   auto const record = b.route(3)->record();
   b.programmer = nullptr;
   EXPECT_EQ(b.platform->routesAllocated(), 0u);
   EXPECT_EQ(b.hwStatus->routes(), 0u);
   EXPECT_EQ(b.platform->groupsAllocated(), 1 + b.mrouteSwitch->zombieOifSet().size());
   b.mrouteSwitch = nullptr;
   b.time->runUntil(Qor::never);
   EXPECT_EQ(b.chip->routes().size(), 0u);
   EXPECT_EQ(b.chip->groups(), 1u);  // the one that is held from outside
}

// ---- A long random life against a model of one line: the chip forwards what is wanted. ----

class RandomLife {
 public:
   explicit RandomLife(unsigned seed)
         : random_(seed), b_({8, 14, 0, 0.001}, seed % 2 ? 0 : 1e-5), faulty_(seed % 3 != 0) {
      b_.routeStatus->newVrfStatus(L3::VrfName("red"), Vel::VrfId(1));
      b_.platform->faults().seedIs(seed);
   }

   void live(unsigned operations) {
      for (unsigned i = 0; i < operations && !testing::Test::HasFailure(); ++i) {
         if (i % 100 == 0) faultsAre(faulty_ && pick(2));
         operate();
         if (pick(3) == 0) b_.time->runUntil(b_.time->now() + 0.0004 * pick(8));
         if (pick(40) == 0) expectAsWanted();
      }
      faultsAre(false);
      for (auto const& [id, wish] : std::exchange(wishes_, {}))
         b_.del(id.first, vrf(id));
      expectAsWanted();
      EXPECT_EQ(b_.platform->routesAllocated(), 0u);
      EXPECT_EQ(b_.platform->groupsAllocated(), b_.mrouteSwitch->zombieOifSet().size());
      EXPECT_EQ(b_.hwStatus->routes(), 0u);
      EXPECT_EQ(b_.programmer->waiting(), 0u);
   }

 private:
   using Id = std::pair<unsigned, bool>;  // the route's number, and whether its VRF is the red one
   struct Wish {
      std::string oifs;
      unsigned vlan;
   };

   static char const* vrf(Id const& id) { return id.second ? "red" : "default"; }

   unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }

   void faultsAre(bool on) {
      for (std::size_t kind = 0; kind < Sim::writeKinds; ++kind)
         b_.platform->faults().rateIs(static_cast<WriteKind>(kind), on ? 0.15 : 0);
   }

   void operate() {
      Id const id(pick(20), pick(2));
      unsigned const what = pick(12);
      if (what == 0) {
         b_.platform->faults().slowNext(1 + pick(3), 0.01);
      } else if (what == 1) {
         b_.mrouteSwitch->zombieOifSetDelAll();
      } else if (what < 5) {
         wishes_.erase(id);
         b_.del(id.first, vrf(id));
      } else {
         char const* const oifs[] = {"", "2", "3", "23", "4", "45", "6", "7", "78", "2345678"};
         Wish const wish = wishes_[id] = {oifs[pick(10)], 1 + pick(2)};
         b_.set(id.first, wish.oifs, wish.vlan, vrf(id));
      }
   }

   void expectAsWanted() {
      b_.drain();
      EXPECT_EQ(b_.programmer->routes(), wishes_.size());
      std::set<std::string> shared;  // the sets of routes in hardware, as far as they may be shared
      std::set<std::string> waiting;
      bool const entriesFull = b_.platform->routesAllocated() == b_.chip->config().routes;
      for (auto const& [id, wish] : wishes_) {
         auto const* route = b_.route(id.first, vrf(id));
         ASSERT_TRUE(route);
         State const state = route->state();
         SCOPED_TRACE(std::to_string(id.first) + vrf(id) + ' ' + route->reason());
         EXPECT_EQ(state == State::inHardware, route->reason().empty());
         std::string const receivers = b_.receivers(id.first, wish.vlan, id.second);
         if (state == State::inHardware) {
            EXPECT_EQ(receivers, wish.oifs.empty() ? "emptyGroup" : wish.oifs);
            auto const record = Qor::ptrCast<Vel::Mroute::AsyncMtableOifSet>(route->record());
            if (!record->dirty()) shared.insert(wish.oifs);
            continue;
         }
         EXPECT_EQ(receivers, "noRoute");
         if (state == State::waitingGroup) {
            waiting.insert(wish.oifs);
            EXPECT_EQ(b_.platform->groupsAllocated(), b_.chip->config().groups);
            EXPECT_TRUE(b_.mrouteSwitch->zombieOifSet().empty());
         } else {
            EXPECT_TRUE(state == State::waitingEntry ? entriesFull : faulty_);
         }
      }
      for (auto const& set : waiting)
         EXPECT_TRUE(entriesFull || !shared.contains(set)) << set << " could be shared";
   }

   std::mt19937 random_;
   Bench b_;
   bool const faulty_;
   std::map<Id, Wish> wishes_;
};

TEST(RouteProgrammer, ForwardsWhatIsWantedThroughALongRandomLife) {
   for (unsigned seed = 1; seed <= 12 && !HasFailure(); ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      RandomLife(seed).live(3000);
   }
}

}  // namespace
}  // namespace Agent
