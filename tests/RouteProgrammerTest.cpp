// The route programmer on the asynchronous platform of the simulated chip, in virtual time: what it
// writes, what it does without room and with failing writes, and a long random life.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "Routing/Hardware/RouteStatus.h"
#include "agent/RouteProgrammer.h"
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

constexpr unsigned intfs = 8;

// The routing side of one test: route n is (10.0.0.1, 239.0.0.n), from n = 1000 on its IPv6 like.
class Bench {
 public:
   explicit Bench(Sim::ChipConfig const& config = {}, Qor::Seconds callCost = 0) {
      Qor::activityManagerIs(time);
      chip = Qor::make<Sim::Chip>(config);
      for (unsigned i = 1; i <= intfs; ++i)
         EXPECT_EQ(chip->portAdd(et(i), i, Bridging::VlanIdOrNone(Qor::U64{i})), "");
      Sim::AsyncPlatformConfig platformConfig;
      platformConfig.callCost = callCost;
      platform = Qor::make<Sim::AsyncPlatform>("sim", chip, platformConfig);
      routeStatus = Qor::make<Routing::Hardware::RouteStatus>();
      routeStatus->newVrfStatus(L3::VrfName("default"), Vel::VrfId(0));
      mrouteSwitch = Vel::Mroute::asyncMrouteSwitchFactory("switch1", routeStatus, platform);
      programmer = std::make_unique<RouteProgrammer>(
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
      bool const v4 = n < 1000;
      return IpGenRouteKey::fromAddresses(
            v4 ? IpGenAddr::v4(0x0a000001) : *IpGenAddr::parse("2001:db8::1"),
            v4 ? IpGenAddr::v4(0xef000000 + n) : *IpGenAddr::parse("ff3e::" + std::to_string(n)));
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
   void del(unsigned n) { programmer->routeDel(L3::VrfName("default"), key(n)); }
   RouteProgrammer::Route const* route(unsigned n, char const* vrf = "default") const {
      return programmer->route(L3::VrfName(vrf), key(n));
   }
   State state(unsigned n) const { return route(n) ? route(n)->state() : State::marked; }
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
      std::ostringstream os;
      for (auto const kind :
           {WriteKind::groupCreate, WriteKind::groupDelete, WriteKind::routeCreate,
            WriteKind::routePoint, WriteKind::routeDelete, WriteKind::groupUpdate}) {
         Qor::U64 const count = chip->writes(kind);
         auto& before = counted_[kind];
         if (kind != WriteKind::groupUpdate) {
            os << (kind == WriteKind::routeCreate ? "/" : "") << count - before;
         } else {
            EXPECT_EQ(count, 0u);
         }
         before = count;
      }
      return os.str();
   }
   // "1:inHardware 2:waitingGroup"
   std::string states(unsigned from, unsigned to) const {
      std::ostringstream os;
      for (unsigned n = from; n <= to; ++n) {
         if (route(n)) os << (os.str().empty() ? "" : " ") << n << ':' << route(n)->state();
      }
      return os.str();
   }

   Qor::Ptr<Qor::ActivityManager> time =
         Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::virtualTime);
   Qor::Ptr<Sim::Chip> chip;
   Qor::Ptr<Sim::AsyncPlatform> platform;
   Qor::Ptr<Routing::Hardware::RouteStatus> routeStatus;
   Qor::Ptr<Vel::Mroute::AsyncMrouteSwitch> mrouteSwitch;
   Qor::Ptr<Hw::Status> hwStatus = Qor::make<Hw::Status>();
   std::unique_ptr<RouteProgrammer> programmer;

 private:
   std::map<WriteKind, Qor::U64> counted_;
};

TEST(RouteProgrammer, AChangeWritesExactlyWhatItMust) {
   Bench b;
   struct Step {
      char const* what;
      std::function<void()> change;
      char const* writes;  // groups created deleted / routes created pointed deleted
      char const* receivers;
   };
   auto const wantedWith = [&](auto const& edit) {
      WantedRoute w = Bench::wanted("4", 2);
      edit(w);
      b.programmer->routeIs(L3::VrfName("default"), Bench::key(1), w);
   };
   Step const steps[] = {
         {"a new route", [&] { b.set(1, "23"); }, "10/110", "23"},
         {"a route with the same set", [&] { b.set(2, "23"); }, "00/110", "23"},
         {"the same again", [&] { b.set(1, "23"); }, "00/000", "23"},
         {"gone and back in one pass", [&] { b.del(1), b.set(1, "23"); }, "00/000", "23"},
         {"a set of its own", [&] { b.set(1, "4"); }, "10/010", "4"},
         {"back to the shared one", [&] { b.set(1, "23"); }, "00/010", "23"},
         {"a set that waits as a zombie", [&] { b.set(1, "4"); }, "00/010", "4"},
         {"two changes in one pass", [&] { b.set(1, "5"), b.set(1, "23"); }, "00/010", "23"},
         {"the zombie's time is over", [&] { b.mrouteSwitch->zombieOifSetDelAll(), b.set(1, "4"); },
          "11/010", "4"},
         {"another vlan", [&] { b.set(1, "4", 2); }, "00/111", "wrongVlan"},
         {"the same vlan under another name",
          [&] { wantedWith([](WantedRoute& w) { w.acceptingIntfId = Bench::et(3); }); }, "00/000",
          "wrongVlan"},
         {"a bridging entry", [&] { wantedWith([](WantedRoute& w) { w.bridgeAction = true; }); },
          "00/111", "wrongVlan"},
         {"another rendezvous point",
          [&] {
             wantedWith([](WantedRoute& w) {
                w.bridgeAction = true;
                w.rpaId = Wisp::Multicast::Fib::RpaIndex(7);
             });
          },
          "00/111", "wrongVlan"},
         {"vlan and set", [&] { b.set(1, "5"); }, "10/111", "5"},
         {"withdrawn", [&] { b.del(1), b.del(77); }, "00/001", "noRoute"},
   };
   for (Step const& step : steps) {
      SCOPED_TRACE(step.what);
      step.change();
      b.drain();
      EXPECT_EQ(b.writes(), step.writes);
      EXPECT_EQ(b.receivers(1), step.receivers);
      EXPECT_EQ(b.receivers(2), step.what == std::string("a new route") ? "noRoute" : "23");
   }
   EXPECT_EQ(b.programmer->counters().resurrections, 1u);
   EXPECT_EQ(b.programmer->routes(), 1u);
   // The hardware status names the routes in hardware, and where they accept from.
   b.set(1, "4", 2);
   b.drain();
   auto const vrfStatus = b.hwStatus->vrfStatus(L3::VrfName("default"));
   EXPECT_EQ(vrfStatus->route(Bench::key(1))->acceptingIntfId(), Bench::et(2));
   b.del(1);
   b.drain();
   EXPECT_EQ(vrfStatus->route().size(), 1u);
}

// Each write completes at an instant of its own; packets are sent at every one of them.
TEST(RouteProgrammer, AChangeIsMadeBeforeItIsBroken) {
   Bench b({}, 1e-5);
   b.set(1, "23");
   b.drain();
   struct Change {
      char const* oifs;
      unsigned vlan;
      Qor::U32 mostEntries;
   };
   unsigned vlan = 1;
   std::string before = "23";
   for (Change const& c : {Change{"45", 1, 1}, Change{"23", 1, 1}, Change{"23", 2, 2},
                           Change{"6", 3, 2}, Change{"", 3, 1}, Change{"78", 3, 1}}) {
      b.set(1, c.oifs, c.vlan);
      std::string const after = *c.oifs ? c.oifs : "emptyGroup";
      Qor::U32 mostEntries = 0;
      while (b.time->nextDeadline() < Qor::never) {
         b.time->runUntil(b.time->nextDeadline());
         mostEntries = std::max(mostEntries, b.chip->routes().size());
         std::string const from = b.receivers(1, vlan);
         std::string const to = b.receivers(1, c.vlan);
         EXPECT_TRUE(from == before || to == after) << from << ' ' << to << ' ' << after;
      }
      EXPECT_EQ(mostEntries, c.mostEntries);
      EXPECT_EQ(b.receivers(1, c.vlan), after);
      before = after;
      vlan = c.vlan;
   }
}

TEST(RouteProgrammer, GroupsFitExactlyAndThoseThatWaitGoInInTheOrderOfArrival) {
   Bench b({3, 100, 0, 0.001});
   for (unsigned n = 1; n <= 6; ++n)
      b.set(n, std::to_string(n));
   b.set(7, "45");
   b.set(8, "3");  // shares
   b.set(9, "4");  // would share with 4
   b.drain();
   EXPECT_EQ(b.states(1, 9),
             "1:inHardware 2:inHardware 3:inHardware 4:waitingGroup 5:waitingGroup "
             "6:waitingGroup 7:waitingGroup 8:inHardware 9:waitingGroup");
   EXPECT_EQ(b.route(4)->reason(),
             "no free multicast group (failure code 8); waits for a deletion");
   EXPECT_EQ(b.programmer->counters().refusals, 5u);
   EXPECT_EQ(b.hwStatus->routes(), 4u);
   b.writes();

   // A route that comes in the same pass stays behind those that wait; who shares goes in with the
   // first.
   b.del(1);
   b.set(10, "7");
   b.drain();
   EXPECT_EQ(b.states(4, 10),
             "4:inHardware 5:waitingGroup 6:waitingGroup 7:waitingGroup 8:inHardware "
             "9:inHardware 10:waitingGroup");
   EXPECT_EQ(b.writes(), "11/221");
   EXPECT_EQ(b.programmer->counters().purges, 1u);

   // A waiting route that changes keeps its place, one that is withdrawn loses it.
   b.set(5, "8");
   b.del(6);
   b.drain();
   b.set(6, "6");
   b.drain();
   b.del(2);
   b.drain();
   EXPECT_EQ(b.receivers(5), "8");
   b.del(5);
   b.drain();
   EXPECT_EQ(b.receivers(7), "45");
   EXPECT_EQ(b.states(4, 10),
             "4:inHardware 6:waitingGroup 7:inHardware 8:inHardware 9:inHardware "
             "10:waitingGroup");
   // Waiting for one set that is in hardware by now costs no group.
   b.set(10, "45");
   b.drain();
   EXPECT_EQ(b.receivers(10), "45");
   // Without others that use it, a changed route gives up its own group for the next.
   b.del(10);
   b.set(7, "17");
   b.drain();
   EXPECT_EQ(b.receivers(7), "17");
   // The group of 4 is shared with 9: a change of 4 must wait, and takes the route out meanwhile.
   b.set(4, "18");
   b.drain();
   EXPECT_EQ(b.state(4), State::waitingGroup);
   EXPECT_EQ(b.receivers(4), "noRoute");
   EXPECT_EQ(b.receivers(9), "4");
}

TEST(RouteProgrammer, EntriesFitExactlyAndThoseThatWaitGoInInTheOrderOfArrival) {
   Bench b({100, 3, 0, 0.001});
   for (unsigned n = 1; n <= 6; ++n)
      b.set(n, "2");
   b.set(7, "3");
   b.drain();
   EXPECT_EQ(b.states(1, 7),
             "1:inHardware 2:inHardware 3:inHardware 4:waitingEntry 5:waitingEntry "
             "6:waitingEntry 7:waitingEntry");
   EXPECT_EQ(b.route(4)->reason(), "no free route entry (failure code 1024); waits for a deletion");
   EXPECT_EQ(b.platform->groupsAllocated(), 1u);  // none is kept for a route that waits
   b.del(2);
   b.set(8, "2");
   b.drain();
   EXPECT_EQ(b.states(3, 8),
             "3:inHardware 4:inHardware 5:waitingEntry 6:waitingEntry 7:waitingEntry "
             "8:waitingEntry");
   // No room for two entries of one route: it steps aside for its own change.
   b.writes();
   b.set(3, "2", 2);
   b.drain();
   EXPECT_EQ(b.receivers(3, 2), "2");
   EXPECT_EQ(b.writes(), "00/111");
   b.del(5), b.del(6);
   b.del(1);
   b.drain();
   EXPECT_EQ(b.receivers(7), "3");
}

TEST(RouteProgrammer, ZombiesAreGivenUpOldestFirstAndNoMoreThanNeeded) {
   Bench b({4, 100, 0, 0.001});
   for (unsigned n = 1; n <= 4; ++n)
      b.set(n, std::to_string(n));
   b.drain();
   for (unsigned n : {3, 1, 2}) {
      b.del(n);
      b.drain();
      b.time->advance(0.1);
   }
   EXPECT_EQ(b.mrouteSwitch->zombieOifSet().size(), 3u);
   b.set(5, "5");
   b.drain();
   b.set(3, "3");  // its zombie was the oldest
   b.set(2, "2");  // its zombie is still there
   b.drain();
   auto const& counters = b.programmer->counters();
   EXPECT_EQ(counters.purges, 2u);
   EXPECT_EQ(counters.resurrections, 1u);
   // A platform that has none to give, whatever is given up: at most as many as there are.
   b.del(5), b.del(4);
   b.drain();
   b.platform->faults().groupsExhaustedIs(true);
   b.set(6, "6");
   b.drain();
   EXPECT_EQ(b.state(6), State::waitingGroup);
   EXPECT_EQ(counters.purges, 4u);
   // Room that nobody told of is found when the next route comes.
   b.platform->faults().groupsExhaustedIs(false);
   b.set(7, "7");
   b.drain();
   EXPECT_EQ(b.states(6, 7), "6:inHardware 7:inHardware");
   // A zombie whose group may not be shared any more is room all the same.
   b.del(7);
   b.drain();
   b.platform->mcastIdReusableIs([](Qor::U32) { return false; });
   b.set(8, "7");
   b.drain();
   EXPECT_EQ(b.receivers(8), "7");
   EXPECT_EQ(counters.resurrections, 1u);
}

TEST(RouteProgrammer, RoutesThatComeAndGoWhileTheTableIsFullLeaveNothingBehind) {
   Bench b({1, 1, 0, 0.001});
   b.set(1, "1");
   b.drain();
   b.set(2, "2");
   b.drain();
   for (unsigned i = 0; i < 50; ++i) {
      b.set(3, "5");
      b.set(4, "1");
      b.drain();
      EXPECT_EQ(b.states(1, 4), "1:inHardware 2:waitingGroup 3:waitingGroup 4:waitingEntry");
      b.del(3), b.del(4);
      b.drain();
   }
   EXPECT_EQ(b.programmer->waiting(), 1u);
}

TEST(RouteProgrammer, ARouteOfAnUnknownVrfWaitsUntilTheVrfIsReady) {
   Bench b;
   b.set(1, "2", 1, "red");
   b.set(2, "2");
   b.drain();
   EXPECT_EQ(b.route(1, "red")->state(), State::waitingVrf);
   EXPECT_EQ(b.route(1, "red")->reason(), "VRF red has no hardware status (failure code 4096)");
   b.programmer->vrfReady(L3::VrfName("blue"));
   b.routeStatus->newVrfStatus(L3::VrfName("red"), Vel::VrfId(5));
   b.programmer->vrfReady(L3::VrfName("red"));
   b.drain();
   EXPECT_EQ(b.receivers(1, 1, 5), "2");
   EXPECT_EQ(b.receivers(1), "noRoute");
}

TEST(RouteProgrammer, AFailedWriteIsTriedAgainAndTheOldSetForwardsMeanwhile) {
   Bench b;
   auto& faults = b.platform->faults();
   auto const& failed = b.programmer->counters().failedWrites;
   // A group that three routes are about to share.
   faults.failNext(WriteKind::groupCreate, "parity error");
   for (unsigned n : {1, 2, 3})
      b.set(n, "23");
   b.drain();
   for (unsigned n : {1, 2, 3})
      EXPECT_EQ(b.receivers(n), "23");
   EXPECT_EQ(b.writes(), "10/633");
   EXPECT_EQ(failed, 3u);
   EXPECT_EQ(b.route(1)->record(), b.route(3)->record());

   // The group, and then the re-point, of a change: the old set forwards at every instant.
   for (auto const kind : {WriteKind::groupCreate, WriteKind::routePoint}) {
      std::string const oifs = kind == WriteKind::groupCreate ? "4" : "5";
      std::string const before = b.receivers(1);
      faults.failNext(kind, "parity error", 2);
      b.set(1, oifs);
      for (bool done = false; b.time->nextDeadline() < Qor::never;) {
         b.time->runUntil(b.time->nextDeadline());
         done = done || b.receivers(1) == oifs;
         EXPECT_EQ(b.receivers(1), done ? oifs : before);
      }
      b.drain();
      EXPECT_EQ(b.receivers(1), oifs);
   }
   EXPECT_EQ(b.receivers(2), "23");
   EXPECT_EQ(failed, 7u);

   // The entry.
   faults.failNext(WriteKind::routeCreate, "parity error");
   b.set(4, "23");
   b.drain();
   EXPECT_EQ(b.receivers(4), "23");
   EXPECT_EQ(failed, 8u);

   // A slow write, overtaken by further changes: only the last is written.
   b.writes();
   faults.slowNext(1, 10);
   b.set(4, "6");
   b.time->runUntil(b.time->now() + 1);
   EXPECT_EQ(b.receivers(4), "23");
   EXPECT_EQ(b.state(4), State::programming);
   b.set(4, "7");
   b.set(4, "8");
   b.drain();
   EXPECT_EQ(b.receivers(4), "8");
   EXPECT_EQ(b.writes(), "20/020");
   b.del(4);
   faults.slowNext(1, 10);
   b.set(5, "67");
   b.time->runUntil(b.time->now() + 1);
   b.del(5);  // while it is being written
   b.drain();
   EXPECT_EQ(b.receivers(5), "noRoute");
}

TEST(RouteProgrammer, ARouteWhoseWritesKeepFailingIsGivenUpUntilItChanges) {
   for (auto const kind : {WriteKind::groupCreate, WriteKind::routeCreate, WriteKind::routePoint}) {
      std::ostringstream what;
      what << kind;
      SCOPED_TRACE(what.str());
      Bench b;
      b.set(1, "2");
      b.drain();
      b.platform->faults().failNext(kind, "memory is broken", 1000);
      b.set(1, "3", kind == WriteKind::routeCreate ? 2 : 1);
      b.drain();
      EXPECT_EQ(b.state(1), State::failed);
      EXPECT_EQ(b.programmer->counters().failedWrites, RouteProgrammer::maxAttempts);
      std::string const reason = b.route(1)->reason();
      EXPECT_EQ(reason.find("write failed 3 times: "), 0u) << reason;
      EXPECT_NE(reason.find("memory is broken"), std::string::npos) << reason;
      EXPECT_EQ(b.receivers(1), "noRoute");
      EXPECT_EQ(b.hwStatus->routes(), 0u);
      b.set(1, "3", kind == WriteKind::routeCreate ? 2 : 1);  // no change
      b.drain();
      EXPECT_EQ(b.state(1), State::failed);
      b.platform->faults().failNext(kind, "memory is broken", 2);
      b.set(1, "34");
      b.drain();
      EXPECT_EQ(b.receivers(1), "34");
   }
   // The attempts of what is wanted no more do not count for what is wanted now.
   Bench b;
   b.platform->faults().failNext(WriteKind::groupCreate, "parity error", 3);
   b.set(1, "2");
   b.time->runUntil(0.0005);
   b.set(1, "3");
   b.drain();
   EXPECT_EQ(b.receivers(1), "3");
}

// Watches the hardware status, as the routing layer does, and interferes.
class Meddler final : public Hw::VrfStatus::Notifiee {
 public:
   explicit Meddler(Bench& b) : b_(b) {
      notifierIs(b.hwStatus->vrfStatusIs(L3::VrfName("default")));
   }
   void onRoute(IpGenRouteKey const&) override {
      if (act && budget > 0) --budget, act();
   }
   std::function<void()> act;
   unsigned budget = 1;

 private:
   Bench& b_;
};

TEST(RouteProgrammer, HandlersMayChangeTheVeryRouteThatIsBeingProgrammed) {
   Bench b;
   Meddler meddler(b);
   meddler.act = [&] { b.del(1); };  // while it is being placed
   b.set(1, "2");
   b.drain();
   EXPECT_EQ(b.programmer->routes(), 0u);
   EXPECT_EQ(b.receivers(1), "noRoute");

   meddler.budget = 1;
   meddler.act = [&] { b.set(1, "3"); };
   b.set(1, "2");
   b.drain();
   EXPECT_EQ(b.receivers(1), "3");

   meddler.budget = 1;
   meddler.act = [&] { b.set(1, "4"); };  // while it is being taken out
   b.del(1);
   b.drain();
   EXPECT_EQ(b.programmer->routes(), 1u);
   ASSERT_TRUE(b.route(1));
   EXPECT_EQ(b.receivers(1), "4");
}

TEST(RouteProgrammer, TakesEverythingOutOfTheChipWhenItGoes) {
   Bench b;
   b.set(1, "2");
   b.set(2, "2", 2);
   b.set(3, "3");
   b.drain();
   b.set(4, "4");  // still to be written
   b.set(1, "5");
   b.time->runUntil(b.time->now());
   auto const record = b.route(3)->record();
   b.programmer = nullptr;
   EXPECT_EQ(b.platform->routesAllocated(), 0u);
   EXPECT_EQ(b.hwStatus->routes(), 0u);
   b.time->runUntil(Qor::never);
   EXPECT_EQ(b.platform->audit(), std::vector<std::string>());
   EXPECT_EQ(b.platform->groupsAllocated(), 1 + b.mrouteSwitch->zombieOifSet().size());
   EXPECT_EQ(b.chip->routes().size(), 0u);
   b.mrouteSwitch = nullptr;
   b.time->runUntil(Qor::never);
   EXPECT_EQ(b.chip->groups(), 1u);  // the one that is held from outside
   EXPECT_EQ(record->oifSet()->portVlanSet(), Bench::wanted("3").set);
}

// ---- A long random life against a model of one line: the chip forwards what is wanted. ----

std::string describe(RouteProgrammer::Route const& r) {
   std::ostringstream os;
   os << r.vrf() << ' ' << r.key() << ' ' << r.state() << ' ' << r.reason();
   return os.str();
}

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
      for (auto const& [id, w] : model_)
         b_.programmer->routeDel(id.first, id.second);
      model_.clear();
      expectAsWanted();
      EXPECT_EQ(b_.platform->routesAllocated(), 0u);
      EXPECT_EQ(b_.platform->groupsAllocated(), b_.mrouteSwitch->zombieOifSet().size());
      EXPECT_EQ(b_.hwStatus->routes(), 0u);
      EXPECT_EQ(b_.programmer->waiting(), 0u);
   }

 private:
   using Id = std::pair<L3::VrfName, IpGenRouteKey>;

   unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }

   void faultsAre(bool on) {
      for (std::size_t kind = 0; kind < Sim::writeKinds; ++kind)
         b_.platform->faults().rateIs(static_cast<WriteKind>(kind), on ? 0.15 : 0);
   }

   void operate() {
      Id const id{L3::VrfName(pick(2) ? "red" : "default"), Bench::key(pick(10) + 1000 * pick(2))};
      switch (pick(12)) {
         case 0:
            b_.platform->faults().slowNext(1 + pick(3), 0.01);
            return;
         case 1:
            b_.mrouteSwitch->zombieOifSetDelAll();
            return;
         case 2:
         case 3:
         case 4:
            model_.erase(id);
            b_.programmer->routeDel(id.first, id.second);
            return;
         default:
            std::string const oifs[] = {"", "2", "3", "23", "4", "45", "6", "7", "78", "2345678"};
            WantedRoute w = Bench::wanted(oifs[pick(10)], 1 + pick(2));
            w.bridgeAction = pick(8) == 0;
            model_[id] = w;
            b_.programmer->routeIs(id.first, id.second, w);
      }
   }

   void expectAsWanted() {
      b_.drain();
      EXPECT_EQ(b_.programmer->routes(), model_.size());
      auto const& zombies = b_.mrouteSwitch->zombieOifSet();
      std::set<std::string> shared;  // sets that a route in hardware has, as far as clean
      std::set<std::string> waitingSets;
      for (auto const& [id, w] : model_) {
         auto const* route = b_.programmer->route(id.first, id.second);
         ASSERT_TRUE(route);
         unsigned const vrf = id.first.name() == "red";
         Sim::Packet const packet{vrf, id.second.source().address(), id.second.group().address(),
                                  w.acceptingVlan};
         auto const out = b_.chip->forward(packet);
         if (route->state() != State::inHardware) {
            EXPECT_FALSE(route->reason().empty());
            EXPECT_EQ(out.result, Sim::Forwarding::noRoute) << describe(*route);
         } else {
            EXPECT_EQ(route->reason(), "");
            std::vector<PortVlan> members;
            for (auto const& [member, flag] : w.set.portVlan())
               members.push_back(member);
            EXPECT_EQ(out.copies, members) << describe(*route);
            ASSERT_TRUE(out.entry) << describe(*route);
            EXPECT_EQ(b_.chip->routes().find(*out.entry)->bridge, w.bridgeAction)
                  << describe(*route);
            auto const record = Qor::ptrCast<Vel::Mroute::AsyncMtableOifSet>(route->record());
            if (!record->dirty()) shared.insert(w.set.pretty());
         }
         switch (route->state()) {
            case State::waitingGroup:
               waitingSets.insert(w.set.pretty());
               EXPECT_EQ(b_.platform->groupsAllocated(), b_.chip->config().groups)
                     << describe(*route);
               EXPECT_TRUE(zombies.empty()) << describe(*route);
               break;
            case State::waitingEntry:
               EXPECT_EQ(b_.platform->routesAllocated(), b_.chip->config().routes)
                     << describe(*route);
               break;
            case State::inHardware:
               break;
            default:
               EXPECT_EQ(route->state(), State::failed) << describe(*route);
               EXPECT_TRUE(faulty_);
         }
      }
      for (auto const& set : waitingSets) {
         if (b_.platform->routesAllocated() < b_.chip->config().routes) {
            EXPECT_FALSE(shared.contains(set)) << set << " could be shared";
         }
      }
   }

   std::mt19937 random_;
   Bench b_;
   bool const faulty_;
   std::map<Id, WantedRoute> model_;
};

TEST(RouteProgrammer, ForwardsWhatIsWantedThroughALongRandomLife) {
   for (unsigned seed = 1; seed <= 12 && !HasFailure(); ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      RandomLife(seed).live(3000);
   }
}

}  // namespace
}  // namespace Agent
