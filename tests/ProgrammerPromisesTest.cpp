// The promises of the programmer to its owner, on both paths: the two ends and the gate, hooks that
// throw, chips that share a hardware status, VRFs and vlans that change, bounded passes, resyncs,
// and wrong uses.
#include <set>

#include "ProgrammerBench.h"

namespace VelMroute {
namespace {

template <class Side>
class Promises : public testing::Test {};
using Sides = testing::Types<AsyncSide, SyncSide>;
TYPED_TEST_SUITE(Promises, Sides);

// ---- The gate and the ends. ----

TYPED_TEST(Promises, AnAgentThatLeavesAndTheDestructorCallNoHook) {
   BenchOn<TypeParam> b;
   b.now("1 to et2; 2 to et3 in vlan 2");
   b.set(3, "et4");
   b.time->runUntil(b.time->now());  // on the asynchronous path, writes are under way
   EXPECT_EQ(b.programmer->settled(), b.sync);
   b.programmer->end(Programmer::End::leave);
   EXPECT_FALSE(b.programmer->ended());
   EXPECT_EQ(testSupport::errorText([&] { b.set(4, "et5"); }),
             "VelMroute::Programmer::routeIs after end not allowed");
   b.pass();
   EXPECT_TRUE(b.programmer->ended());
   auto const calls = b.platform->calls();
   b.programmer = nullptr;
   b.pass();
   EXPECT_EQ(b.platform->calls(), calls);
   EXPECT_EQ(b.receivers(1) + b.receivers(2, 2) + b.receivers(3), "et2et3et4");
   EXPECT_EQ(b.hwStatus->routes(), 0u);

   BenchOn<TypeParam> dropped;
   dropped.now("1 to et2");
   auto const before = dropped.platform->calls();
   dropped.programmer = nullptr;
   EXPECT_EQ(dropped.platform->calls(), before);
   EXPECT_EQ(dropped.receivers(1), "et2");
}

// The end waits for the retry of deletions that threw, and does not turn the loop for nothing.
TYPED_TEST(Promises, ACleanEndLeavesNothingOnTheChipAlsoAfterDeletionsThatThrew) {
   for (unsigned const throws : {0u, 3u}) {
      BenchOn<TypeParam> b;
      unsigned failures = throws;
      b.now("1 to et2; 2 to et2 in vlan 2; 3 to et3; 4 to et4");
      b.now("withdraw 4");  // a zombie
      b.platform->hookObserverIs([&](std::string_view hook) {
         bool const deletion = hook == "doDeleteMroute" || hook == "doCommitMrouteBatch";
         if (deletion && failures > 0 && failures--) throw std::runtime_error("bus error");
      });
      if (throws == 0) b.set(1, "et5");
      b.time->runUntil(b.time->now());
      b.programmer->end(Programmer::End::clean);
      b.time->runUntil(b.time->now() + 1);
      EXPECT_EQ(b.programmer->ended(), !b.sync || throws == 0);
      b.time->runUntil(b.time->now() + 3 * Programmer::Options().retry);
      EXPECT_TRUE(b.programmer->ended() && b.programmer->settled());
      EXPECT_EQ(b.chip->routes().size() + b.chip->groups() + b.hwStatus->routes(), 0u);
      EXPECT_EQ(b.programmer->counters().thrown, b.sync ? throws : 0u);
      if constexpr (BenchOn<TypeParam>::sync) {
         EXPECT_EQ(b.platform->calls(Sim::SyncHook::mrouteSwitchInit), 2u);
      }
   }
}

// ---- Hooks that throw. ----

// A life in which each call of a hook, one after the other, throws once. Afterwards each route is
// as wanted.
TYPED_TEST(Promises, AHookThatThrowsFailsItsRouteAloneUntilTheRetry) {
   std::set<std::string> const tried{"doAllocateSharableMulticastGroup",
                                     "doAllocateRoute",
                                     "doSetMtableOifSet",
                                     "doGetXactForOifSet",
                                     "doGetXactForIngress",
                                     "doAllocateMtableOifSet",
                                     "doAllocateMroute",
                                     "doDeleteMroute",
                                     "mtableFull",
                                     "mrouteFull",
                                     "needIngressProgramming"};
   std::set<std::string> seen;
   for (unsigned failing = 1;; ++failing) {
      BenchOn<TypeParam> b({.groups = 3, .routes = 3});
      unsigned calls = 0;
      std::string thrown;
      b.platform->hookObserverIs([&](std::string_view hook) {
         if (!tried.contains(std::string(hook)) || ++calls != failing) return;
         thrown = hook;
         throw std::runtime_error("bus error");
      });
      SCOPED_TRACE("call " + std::to_string(failing));
      auto const change = [&](char const* text) {
         b.change(text);
         b.pass();
         for (auto const& [n, wish] : b.wishes) {
            auto const status = *b.programmer->route(b.vrfOf(n), b.keyOf(n));
            if (status.state != State::failed) continue;
            EXPECT_EQ(status.reason.find("the hook " + thrown + " threw"), 0u) << status.reason;
         }
      };
      change("1 to et2 et3; 2 to et2 et3; 3 to et4; 4 to et5");
      change("1 to et5; 3 to et4 in vlan 2");
      change("withdraw 2; 3 to et2 et3 in vlan 2");
      b.time->runUntil(b.time->now() + 2 * Programmer::Options().retry);
      b.platform->hookObserverIs(nullptr);
      EXPECT_TRUE(b.programmer->settled());
      EXPECT_EQ(b.states(), "inHardware 1 3 4");
      EXPECT_EQ(b.receivers(1) + ", " + b.receivers(3, 2) + ", " + b.receivers(4),
                "et5, et2 et3, et5");
      EXPECT_EQ(b.mrouteSwitch()->mtableOifSet(), nullptr);
      EXPECT_EQ(b.programmer->counters().thrown, !thrown.empty());
      if (this->HasFailure() || thrown.empty()) break;
      seen.insert(thrown);
   }
   EXPECT_GE(seen.size(), 5u);
}

TYPED_TEST(Promises, ARouteThatReturnsBeforeTheRetryOfItsPredecessorStays) {
   BenchOn<TypeParam> b;
   b.platform->hookObserverIs([&](std::string_view hook) {
      if (hook.starts_with("doAllocate")) throw std::runtime_error("bus error");
   });
   b.change("1 to et2");
   b.pass();
   EXPECT_EQ(b.states(), "failed 1");
   b.platform->hookObserverIs(nullptr);
   b.now("withdraw 1");
   b.now("1 to et3");
   b.time->runUntil(b.time->now() + 2 * Programmer::Options().retry);
   b.drain();
   EXPECT_EQ(b.states(), "inHardware 1");
}

TYPED_TEST(Promises, ADeletionHookThatThrowsInsideADestructorIsCounted) {
   BenchOn<TypeParam> b;
   b.now("1 to et2");
   char const* const hook = b.sync ? "handleFreeMtableOifSet" : "doDeleteOifSet";
   b.platform->hookObserverIs([&](std::string_view name) {
      if (name == hook) throw std::runtime_error("bus error");
   });
   b.change("withdraw 1");
   b.pass();
   b.mrouteSwitch()->zombieOifSetDelAll();
   EXPECT_EQ(b.programmer->counters().thrown, 1u);
   EXPECT_EQ(b.mrouteTable->hookErrors().hook, hook);
   b.now("2 to et3");
   EXPECT_EQ(b.receivers(2), "et3");
}

// ---- Several chips with one hardware status. ----

TYPED_TEST(Promises, AFullChipDoesNotWithdrawTheRouteOfAnotherChip) {
   auto const shared = std::make_shared<Surroundings>();
   BenchOn<TypeParam> large({}, 0, shared), full({.groups = 1}, 0, shared);
   WantedRoute w = large.wanted("et2");
   w.fastdrop = {et(5)};
   large.set(1, w);
   full.set(9, "et7 et8");
   full.pass();
   full.set(1, w);
   full.pass();
   EXPECT_EQ(large.route(1)->state(), State::inHardware);
   EXPECT_EQ(full.route(1)->state(), State::waitingGroup);
   auto const status = [&] {
      auto const vrf = shared->hwStatus->vrfStatus(large.vrfOf(1));
      return vrf ? vrf->route(large.keyOf(1)) : nullptr;
   };
   ASSERT_TRUE(status());
   EXPECT_TRUE(status()->fastdropLastPollTime().find("et5"));
   full.del(9);
   full.pass();
   EXPECT_EQ(full.route(1)->state(), State::inHardware);
   large.del(1);
   large.pass();
   EXPECT_TRUE(status());
   full.programmer = nullptr;
   EXPECT_FALSE(status());
}

// ---- VRFs and vlans. ----

TYPED_TEST(Promises, ARouteWaitsForItsVrfAndIsPlacedAgainWhenTheVrfReturnsWithAnotherNumber) {
   BenchOn<TypeParam> b;
   b.play({{"1 to et2; 101 to et3", "inHardware 1; waitingVrf 101",
            "1 groupCreate, 1 routeCreate, 1 routePoint"}});
   EXPECT_EQ(b.route(101)->reason(),
             b.sync ? "VRF red has no id" : "VRF red has no hardware status (failure code 4096)");
   b.vrfIs(100);
   b.play({{"", "inHardware 1 101", "1 groupCreate, 1 routeCreate, 1 routePoint"}});
   b.vrfDel(b.vrfOf(100));
   b.pass();
   EXPECT_EQ(b.states(), "inHardware 1; waitingVrf 101");
   EXPECT_EQ(b.receivers(101), "noRoute");
   b.side().vrfIs(b.vrfOf(100), Vel::VrfId(7));
   b.pass();
   EXPECT_EQ(b.states(), "inHardware 1 101");
   auto const out = b.chip->forward({7, b.keyOf(101).source().address(),
                                     b.keyOf(101).group().address(), Bridging::VlanIdOrNone(1u)});
   EXPECT_EQ(out.copies.size(), 1u);
   EXPECT_EQ(b.platform->audit(), std::vector<std::string>());
}

TYPED_TEST(Promises, AVlanThatChangesPlacesTheRoutesWithItsInterfaceAgain) {
   BenchOn<TypeParam> b;
   auto const vlanIs = [&](unsigned port, unsigned vlan) {
      b.surroundings->vlans->intfIdToVlanIdIs(et(port), Bridging::VlanId(Qor::U64{vlan}));
      b.pass();
   };
   WantedRoute w = b.wanted("et2");
   w.fastdrop = {et(5)};
   b.set(1, w);
   b.set(2, "et3 et7");
   b.surroundings->vlans->intfIdToVlanIdDel(et(7));
   b.pass();
   EXPECT_EQ(b.route(1)->state(), State::inHardware);
   EXPECT_EQ(b.route(2)->state(), State::waitingVlan);
   EXPECT_EQ(b.route(2)->reason(), "interface et7 has no vlan");
   vlanIs(7, 7);
   EXPECT_EQ(b.route(2)->state(), State::inHardware);
   vlanIs(1, 11);
   EXPECT_EQ(b.receivers(1, 1) + ", " + b.receivers(1, 11), "wrongVlan, et2");
   b.writes();
   vlanIs(8, 18);  // no route has this interface
   EXPECT_EQ(b.writes(), "none");
   // Input and fastdrop interface exchange their vlans. The table gives a vlan to one interface.
   b.surroundings->vlans->intfIdToVlanIdDel(et(5));
   vlanIs(1, 5);
   vlanIs(5, 11);
   EXPECT_EQ(b.receivers(1, 5), "et2");
   EXPECT_NE(b.receivers(1, 11), "et2");
   EXPECT_EQ(b.chip->routes().size(), 3u);
   b.surroundings->vlans->intfIdToVlanIdDel(et(2));
   b.pass();
   EXPECT_EQ(b.route(1)->reason(), "interface et2 has no vlan");
   EXPECT_EQ(b.receivers(1, 5), "wrongVlan");  // the fastdrop entry stays
   EXPECT_EQ(b.platform->audit(), std::vector<std::string>());
}

// ---- Bounded passes, resyncs and changes. ----

// Runs turn by turn, and returns the longest turn in seconds.
template <class Bench>
Qor::Seconds longestTurn(Bench& b) {
   Qor::Seconds longest = 0;
   auto const nothingSoon = [&] { return b.time->nextDeadline() > Qor::now() + 0.5; };
   while (!nothingSoon()) {
      Qor::Seconds const begin = std::max(Qor::now(), b.time->nextDeadline());
      b.time->runUntil(b.time->nextDeadline());
      longest = std::max(longest, Qor::now() - begin);
   }
   return longest;
}

TYPED_TEST(Promises, TenThousandRoutesNeverHoldTheLoopForMoreThanFiveMilliseconds) {
   BenchOn<TypeParam> b({.groups = 64, .routes = 20000}, 1e-4);
   auto const key = [](unsigned n) { return testSupport::key(n); };
   auto const wanted = [&](unsigned n) { return b.wanted("et" + std::to_string(2 + n % 7)); };
   for (unsigned n = 1; n <= 10000; ++n)
      b.programmer->routeIs(b.vrfOf(1), key(n), wanted(n));
   EXPECT_LE(longestTurn(b), 0.005);
   EXPECT_EQ(b.chip->routes().size(), 10000u);
   b.programmer->resyncBegin();
   for (unsigned n = 1; n <= 10000; n += 2)
      b.programmer->routeIs(b.vrfOf(1), key(n), wanted(n));
   b.programmer->resyncEnd();
   EXPECT_TRUE(b.programmer->resyncing());
   EXPECT_LE(longestTurn(b), 0.005);
   EXPECT_FALSE(b.programmer->resyncing());
   EXPECT_EQ(b.chip->routes().size(), 5000u);
   EXPECT_EQ(b.programmer->counters().unchanged, 5000u);
   b.programmer->end(Programmer::End::clean);
   EXPECT_LE(longestTurn(b), 0.005);
   EXPECT_TRUE(b.programmer->ended());
}

// Four inputs failed before the routes were named. The rewrites of all their sets take 12 ms, and the
// placement of a route takes up to 10 ms.
TYPED_TEST(Promises, AResyncReroutesOneFailedInterfaceInAStep) {
   BenchOn<TypeParam> b({.groups = 64, .routes = 64}, 1e-3);
   for (unsigned in = 1; in <= 4; ++in)
      b.surroundings->links->newIntfStatus(et(in))->operStatusIs(Interface::IntfOperStatus::down);
   b.programmer->resyncBegin();
   for (unsigned n = 1; n <= 12; ++n) {
      auto const outputs = b.surroundings->pool.get({et(5 + n % 3)}, false, {et(8)});
      b.set(n, VelMroute::WantedRoute{.iif = et(1 + n / 3 % 4), .outputs = outputs});
   }
   b.programmer->resyncEnd();
   EXPECT_LE(longestTurn(b), 0.011);
   EXPECT_TRUE(b.programmer->settled());
   for (unsigned n = 1; n <= 12; ++n)
      EXPECT_EQ(b.receivers(n, 1 + n / 3 % 4), "et8") << n;
}

// Two writes belong to a change. A burst also ends while wishes are held: by a resync, which waits
// for them, and by the end of an agent that leaves its chip.
TEST(Programmer, ABurstOfWishesHasABoundedNumberOfChangesUnderWay) {
   BenchOn<AsyncSide> b({.groups = 64, .routes = 40000, .latency = 0.01});
   auto const burst = [&](unsigned first) {
      for (unsigned n = first; n < first + 20000; ++n)
         b.programmer->routeIs(b.vrfOf(1), testSupport::key(n), b.wanted("et2 et3"));
   };
   auto const mostPending = [&] {
      Qor::U32 most = 0;
      for (double const end = Qor::now() + 1; b.time->nextDeadline() < end;) {
         b.time->runUntil(b.time->nextDeadline());
         most = std::max(most, b.platform->queue()->pending());
      }
      return most;
   };
   b.programmer->resyncBegin();
   burst(1);
   b.programmer->resyncEnd();
   Qor::U32 const most = mostPending();
   EXPECT_GT(most, 2 * 16000u);
   EXPECT_LE(most, 2 * 16384u + 1);
   EXPECT_TRUE(b.programmer->settled() && !b.programmer->resyncing());
   EXPECT_EQ(b.chip->routes().size(), 20000u);
   burst(20001);
   b.time->runUntil(Qor::now());
   b.programmer->end(Programmer::End::leave);
   EXPECT_LE(mostPending(), 2 * 16384u);
   EXPECT_TRUE(b.programmer->ended());
   EXPECT_EQ(b.chip->routes().size(), 20000u + 16384u);
}

TYPED_TEST(Promises, ChangesAreListedOnceForEachRouteAlsoForOneThatIsGone) {
   BenchOn<TypeParam> b;
   unsigned wakes = 0;
   b.programmer->onChanges([&] { ++wakes; });
   auto const listed = [&](unsigned most) {
      std::string text;
      bool const more = b.programmer->changes(most, [&](L3::VrfName const&, RouteKey const& k) {
         for (unsigned const n : {1, 2, 3}) {
            if (k == b.keyOf(n)) text += std::to_string(n);
         }
         b.programmer->routeDel(b.vrfOf(3), b.keyOf(3));  // the visitor may call the programmer
      });
      return text + (more ? "+" : "");
   };
   b.change("1 to et2; 2 to et3; 3 to et4");
   b.pass();
   EXPECT_EQ(wakes, 1u);
   EXPECT_EQ(listed(2), "12+");
   b.wishes.erase(3);
   b.change("withdraw 1");
   b.pass();
   EXPECT_EQ(listed(9), "31");
   EXPECT_EQ(listed(9), "");
   EXPECT_EQ(wakes, 1u);
   EXPECT_FALSE(b.programmer->route(b.vrfOf(1), b.keyOf(1)));
}

// ---- Wrong uses. ----

TYPED_TEST(Promises, AWishThatNoChipTakesIsARangeErrorAndOneThatThisChipDoesNotTakeFails) {
   BenchOn<TypeParam> b;
   auto& pool = b.surroundings->pool;
   std::pair<WantedRoute, char const*> const wishes[] = {
         {{}, "iif empty"},
         {{.iif = et(1), .noRpf = true}, "iif with noRpf"},
         {{.outputs = pool.get({et(2)}, false, {et(3)}), .noRpf = true}, "iif empty"},
         {{.bridge = true, .noRpf = true}, "bridge with noRpf"},
         {{.iif = et(1), .fastdrop = {et(1)}}, "fastdrop of the input"},
         {{.iif = et(1), .fastdrop = {Lnet::IntfId()}}, "fastdrop empty interface"}};
   for (auto const& [wish, error] : wishes)
      EXPECT_EQ(testSupport::errorText([&] { b.set(1, wish); }),
                std::string("VelMroute::WantedRoute::") + error + " not allowed");
   auto const table = [&] { return b.newTable(*b.surroundings); };
   auto const vlans = Qor::make<IntfVlanId::Table>();
   std::pair<std::function<void()>, char const*> const calls[] = {
         {[&] { pool.get({Lnet::IntfId()}); }, "Outputs::ports empty interface"},
         {[&] { b.programmer->routeIs(b.vrfOf(1), {}, {.iif = et(1)}); },
          "Programmer::key (invalid)"},
         {[&] { Programmer({}); }, "Programmer::table null"},
         {[&] { Programmer({.table = table()}, {.retry = 0}); }, "Programmer::retry 0"},
         {[&] { Programmer({.table = table(), .vlans = vlans}); },
          "Programmer::vlans other than that of the table"}};
   for (auto const& [call, error] : calls)
      EXPECT_EQ(testSupport::errorText(call), std::string("VelMroute::") + error + " not allowed");
   Programmer({.table = table()});
   EXPECT_EQ(b.programmer->routes(), 0u);

   // A number of a VRF that the synchronous path cannot pass to the chip.
   b.side().vrfIs(b.vrfOf(100), Vel::VrfId(70000));
   b.set(101, "et2");
   b.pass();
   EXPECT_EQ(b.route(101)->state(), b.sync ? State::failed : State::inHardware);
   EXPECT_EQ(b.route(101)->reason(), b.sync ? "the number of VRF red, 70000, is above 65535" : "");
}

TEST(Outputs, EqualOutputsAreOneObjectThatMayOutliveThePool) {
   auto pool = std::make_unique<OutputsPool>();
   OutputsPtr const a = pool->get({et(3), et(2), et(3)}, true);
   EXPECT_EQ(a, pool->get({et(2), et(3)}, true));
   EXPECT_NE(a, pool->get({et(2), et(3)}, false));
   EXPECT_NE(a, pool->get({et(2), et(3)}, true, {et(4)}));
   EXPECT_EQ(a->ports(), (std::vector{et(2), et(3)}));
   EXPECT_EQ(pool->size(), 1u);
   pool = nullptr;
   EXPECT_TRUE(*a == *OutputsPool().get({et(2), et(3)}, true));
}

}  // namespace
}  // namespace VelMroute
