// The synchronous platform of the simulated chip, mostly behind a real switch: what it writes, its
// numbers, hit bits, counters, and its faults.
#include <map>
#include <random>

#include "SimTestSupport.h"
#include "Vel/VelSyncMrouteSwitch.h"
#include "platform/sim/SyncPlatform.h"

namespace {

using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Routing::Multicast::Fib::CounterMode;
using Sim::SyncPlatform;
using Sim::WriteKind;
using RecordPtr = Qor::Ptr<Vel::MtableOifSet>;
using namespace testSupport;

constexpr Qor::U32 invalidIndex = SyncPlatform::invalidOifSetIndex;

class SimSyncPlatform : public OnSimulatedChip {
 protected:
   static constexpr Qor::U32 id = 5;

   SimSyncPlatform() {
      l3_->vrfNameToVrfIdIs("red", Vel::VrfId(7));
      l3_->multicastZombiesEnabledIs(false);
      build({2, 3, 1});
   }
   void build(Sim::ChipConfig const& chipConfig, Sim::SyncPlatformConfig const& config = {}) {
      sw_ = nullptr;
      buildChip(chipConfig);
      platform_ = Qor::make<SyncPlatform>("platform", chip_, id, config);
      start();
   }
   void start() {
      sw_ = Vel::mrouteSwitchFactory("switch", id, nullptr, l3_, platform_, nullptr, nullptr);
   }

   RecordPtr record(OifSetPtr const& s) {
      sw_->doAllocateMtableOifSet(s);
      auto const result = Qor::ptrCast<Vel::MtableOifSet>(sw_->mtableOifSet());
      sw_->mtableOifSetIs(nullptr);
      return result;
   }
   RouteHandle allocate(Qor::U32 n, RecordPtr const& to, unsigned vlan = 0, bool fastDrop = false,
                        bool bridge = false, char const* vrf = "default") {
      sw_->doAllocateRoute(key(n), Bridging::VlanIdOrNone(Qor::U64{vlan}), bridge, to, fastDrop,
                           vlan == 0, Wisp::Multicast::Fib::RpaIndex::none(), L3::VrfName(vrf));
      return sw_->routeHandle();
   }
   RouteHandle route(Qor::U32 n, RecordPtr const& to, unsigned vlan = 0, bool fastDrop = false,
                     char const* vrf = "default") {
      RouteHandle const handle = allocate(n, to, vlan, fastDrop, false, vrf);
      if (!handle.isNull()) sw_->doSetMtableOifSet(handle, to);
      return handle;
   }
   RouteHandle boundary(Qor::U32 n, unsigned vlan) {
      return allocate(n, nullptr, vlan, false, true);
   }
   Qor::U32 rewrite(Qor::U32 index, OifSetPtr const& s) {
      return platform_->doAllocateMtableOifSet(id, index, s);
   }
   void expectSound() { EXPECT_EQ(platform_->audit(), Lines()); }

   Qor::Ptr<Vel::L3Status> l3_ = Qor::make<Vel::L3Status>();
   Qor::Ptr<SyncPlatform> platform_;
   Qor::Ptr<Vel::MrouteSwitch> sw_;
};

TEST_F(SimSyncPlatform, ARewriteInPlaceSwitchesAllRoutesOfASharedIndexAtOnce) {
   RecordPtr const wide = record(set({"et1", "et2"}));
   EXPECT_EQ(record(wide->oifSet()), wide);
   RouteHandle const a = route(1, wide);
   route(2, wide);
   EXPECT_EQ(receivers(1) + ' ' + receivers(2), "et1 et2 et1 et2");
   Qor::U32 const index = wide->oifSetIndex();
   EXPECT_EQ(rewrite(index, set({"et3"})), index);
   EXPECT_EQ(receivers(1) + ' ' + receivers(2), "et3 et3");
   EXPECT_EQ(platform_->doReallocateMtableOifSet(id, index, set({}, true)), index);
   platform_->faults().failNext(WriteKind::groupUpdate, "parity error");
   EXPECT_EQ(rewrite(index, set({"et1"})), invalidIndex);
   EXPECT_EQ(receivers(1) + ' ' + receivers(2), "cpu cpu");

   // Pointing where an entry points already is no write.
   platform_->doSetMtableOifSet(id, 0, a, nullptr, index);
   EXPECT_EQ(chip_->writes(WriteKind::routePoint), 2u);
   RecordPtr const narrow = record(set({"et1"}));
   sw_->doSetMtableOifSet(a, narrow);
   EXPECT_EQ(receivers(1) + ' ' + receivers(2), "et1 cpu");
   EXPECT_EQ(chip_->writes(WriteKind::routePoint), 3u);
   expectSound();
}

TEST_F(SimSyncPlatform, TablesFitExactlyAndRoomComesBackWithTheFirstToGo) {
   RecordPtr const first = record(set({"et1"}));
   RecordPtr second = record(set({"et2"}));
   EXPECT_EQ(record(set({"et3"})), nullptr);
   EXPECT_FALSE(sw_->mtableFree());
   second = nullptr;
   EXPECT_TRUE(sw_->mtableFree());
   second = record(set({"et3"}));
   ASSERT_NE(second, nullptr);
   for (Qor::U32 n = 0; n < 3; ++n)
      route(n, n == 1 ? second : first);
   EXPECT_TRUE(route(3, first).isNull());
   EXPECT_FALSE(sw_->mrouteTcamFree());
   sw_->doDeleteRoute(RouteHandle(1));
   EXPECT_EQ(route(3, second), RouteHandle(1));
   EXPECT_EQ(receivers(1) + ' ' + receivers(3), "noRoute et3");

   EXPECT_EQ(boundary(8, 1), RouteHandle(3));
   EXPECT_TRUE(boundary(9, 1).isNull());
   EXPECT_FALSE(sw_->boundaryTcamFree());
   sw_->doDeleteRoute(RouteHandle(3));
   EXPECT_TRUE(sw_->boundaryTcamFree());
   EXPECT_EQ(boundary(9, 1), RouteHandle(3));
   EXPECT_EQ(receivers(8, 1) + ' ' + receivers(9, 1), "noRoute bridged");
   EXPECT_EQ(chip_->groupsPeak() + chip_->routes().peak() + chip_->boundaries().peak(), 6u);
   expectSound();
}

TEST_F(SimSyncPlatform, EmptySetsCostNoRoomAndEntriesDropWhereTheyShould) {
   RecordPtr const full = record(set({"et1"})), more = record(set({"et2"}));
   RecordPtr const drop = record(set({})), cpu = record(set({}, true));
   EXPECT_EQ(drop->oifSetIndex(), 3u);
   EXPECT_EQ(record(drop->oifSet())->oifSetIndex(), 5u);
   RouteHandle const a = route(1, drop, 1);
   route(2, cpu, 0, false, "red");
   EXPECT_EQ(receivers(1, 1) + ' ' + receivers(2, 3, 7), "emptyGroup cpu");
   EXPECT_EQ(rewrite(4, set({}, true)), 4u);
   EXPECT_EQ(rewrite(4, set({})), invalidIndex);
   EXPECT_EQ(rewrite(4, set({"et1"})), invalidIndex);
   sw_->doSetMtableOifSet(a, full);
   route(1, full, 2, true);
   EXPECT_EQ(receivers(1, 1) + ' ' + receivers(1, 2) + ' ' + receivers(1, 3),
             "et1 emptyGroup wrongVlan");
   sw_->doDeleteRoute(a);
   allocate(1, nullptr, 1);  // with index 0
   EXPECT_EQ(receivers(1, 1) + ' ' + receivers(2, 3), "emptyGroup noRoute");
   EXPECT_EQ(platform_->emptySetsAllocated() + chip_->groups(), 4u);
   expectSound();
}

TEST_F(SimSyncPlatform, HitBitsAreThoseSinceTheReviewBefore) {
   RecordPtr const to = record(set({"et1"}));
   route(1, to, 1);
   route(1, to, 2, true);
   boundary(2, 3);
   auto const hits = [&] {
      auto const hit = [&](Qor::U32 n, unsigned vlan, bool bnd) {
         return platform_->mrouteHitBit(id, 0, key(n), Bridging::VlanIdOrNone(Qor::U64{vlan}), bnd);
      };
      EXPECT_FALSE(hit(2, 3, false) || hit(1, 1, true) || hit(1, 0, false));
      return std::string() + "-r"[hit(1, 1, false)] + "-f"[hit(1, 2, false)] +
             "-b"[hit(2, 3, true)];
   };
   receivers(1, 1);
   EXPECT_EQ(hits(), "---");
   platform_->faults().hitBitsBusyNext(1);
   EXPECT_EQ(platform_->mrouteHitBitCacheRefresh(id), SyncPlatform::hitBitCacheBusy);
   EXPECT_EQ(hits(), "---");
   EXPECT_EQ(platform_->mrouteHitBitCacheRefresh(id), SyncPlatform::hitBitCacheRefreshed);
   receivers(1, 2);
   receivers(2, 3);
   EXPECT_EQ(hits(), "r--");
   platform_->mrouteHitBitCacheClear(id);
   EXPECT_EQ(hits(), "---");
   for (char const* expected : {"-fb", "---"}) {
      platform_->mrouteHitBitCacheRefresh(id);
      EXPECT_EQ(hits(), expected);
   }
}

TEST_F(SimSyncPlatform, CountersAddUpTheRoutesOfAKeyAndOutliveThem) {
   build({2, 3, 1}, {2, 0});
   auto const all = Routing::Multicast::Fib::canonicalCatchAllKey();
   auto const read = [&](auto const& k) { return platform_->doReadMrouteCounter(k); };
   RecordPtr const to = record(set({"et1"}));
   RouteHandle const a = route(1, to);
   route(1, to, 0, false, "red");
   route(2, to);
   receivers(1);  // before it is counted
   Qor::U32 const number = platform_->doCreateMrouteCounter(0, key(1));
   EXPECT_NE(number, 0u);
   EXPECT_EQ(platform_->doCreateMrouteCounter(7, key(1)), number);
   EXPECT_NE(platform_->doCreateMrouteCounter(0, all), 0u);
   EXPECT_EQ(platform_->doCreateMrouteCounter(0, key(2)), 0u);
   receivers(1);
   receivers(1, 0, 7);
   receivers(2);
   EXPECT_EQ(read(key(1)), 2u);
   EXPECT_EQ(read(key(1)), 0u);
   EXPECT_EQ(read(key(2)), 0u);
   EXPECT_EQ(read(all), 3u);
   receivers(1);
   sw_->doDeleteRoute(a);
   EXPECT_EQ(read(key(1)), 1u);
   receivers(1, 0, 7);
   platform_->handleMrouteCounterMode(CounterMode::bytes);  // starts anew
   receivers(1, 0, 7);
   EXPECT_EQ(read(key(1)), 64u);
   receivers(1, 0, 7);
   platform_->doClearMrouteCounter(key(1));
   EXPECT_EQ(read(key(1)), 0u);
   platform_->ageOutHwMcastCounter(key(1));
   EXPECT_NE(platform_->doCreateMrouteCounter(0, key(2)), 0u);
   platform_->doDeleteMrouteCounter(key(2));
   EXPECT_EQ(platform_->countersAllocated(), 1u);
}

TEST_F(SimSyncPlatform, FailedCreationsAreAnswersAndWhatHasNobodyToTellIsTriedAgain) {
   build({2, 3, 1}, {0, 0.25});
   Lines called;
   platform_->hookObserverIs([&](std::string_view hook) { called.emplace_back(hook); });
   Sim::Faults& faults = platform_->faults();
   for (unsigned kind = 0; kind < Sim::writeKinds; ++kind)
      faults.failNext(static_cast<WriteKind>(kind), "parity error");
   faults.slowNext(1, 10);
   EXPECT_EQ(record(set({"et1"})), nullptr);
   EXPECT_EQ(time_->now(), 10.75);  // with the start of the switch
   EXPECT_EQ(called, (Lines{"mtableFull", "doAllocateMtableOifSet"}));
   platform_->hookObserverIs(nullptr);
   RecordPtr to = record(set({"et1"}));
   EXPECT_TRUE(route(1, to).isNull());
   EXPECT_TRUE(boundary(2, 3).isNull());
   EXPECT_TRUE(sw_->mtableFree() && sw_->mrouteTcamFree() && sw_->boundaryTcamFree());
   RouteHandle const a = route(1, to), b = boundary(2, 3);
   EXPECT_EQ(receivers(1) + ' ' + receivers(2, 3), "et1 bridged");
   sw_->doDeleteRoute(a);
   sw_->doDeleteRoute(b);
   to = nullptr;
   EXPECT_EQ(faults.injected(), 7u);  // all but the rewrite
   EXPECT_EQ(chip_->groups() + chip_->routes().size() + chip_->boundaries().size(), 0u);

   to = record(set({"et2"}));
   faults.groupsExhaustedIs(true);
   faults.routesExhaustedIs(true);
   faults.boundariesExhaustedIs(true);
   EXPECT_TRUE(!record(set({"et1"})) && route(1, to).isNull() && boundary(2, 3).isNull());
   EXPECT_FALSE(sw_->mtableFree() || sw_->mrouteTcamFree() || sw_->boundaryTcamFree());
   expectSound();
}

TEST_F(SimSyncPlatform, TheEndOfTheSwitchClearsTheChipAndLateFreesMeanNothing) {
   route(1, record(set({"et1"})));
   route(2, record(set({})));
   boundary(3, 1);
   auto const old = Vel::mtableOifSetFactory(set({"et2"}), false, nullptr);
   old->oifSetIndexIs(platform_->doAllocateMtableOifSet(id, 0, old->oifSet()));
   sw_ = nullptr;
   EXPECT_FALSE(platform_->inService());
   EXPECT_EQ(chip_->groups() + chip_->routes().size() + chip_->boundaries().size(), 0u);
   start();
   RecordPtr const a = record(set({"et1"})), b = record(set({"et2"}));
   route(1, a);
   route(2, b);
   platform_->handleFreeMtableOifSet(id, old);  // whose index is another set's now
   EXPECT_EQ(receivers(1) + ' ' + receivers(2), "et1 et2");
   expectSound();
   platform_->handleFreeMtableOifSet(id, old);
   EXPECT_EQ(rewrite(99, set({"et1"})), invalidIndex);
   EXPECT_EQ(platform_->doAllocateMtableOifSet(id + 1, 0, set({"et1"})), invalidIndex);
   platform_->mrouteSwitchInit(id, true);
   platform_->doDeleteMroute(id, 0, RouteHandle(3), nullptr);
   sw_ = nullptr;
   EXPECT_TRUE(platform_->doAllocateMroute(id, 0, key(1), {}, false, 0, false, 0).isNull());
   EXPECT_EQ(platform_->audit(), (Lines{"handleFreeMtableOifSet: oif set index 2 is not allocated",
                                        "doAllocateMtableOifSet: oif set index 99 is not allocated",
                                        "doAllocateMtableOifSet: switch 6 is another",
                                        "mrouteSwitchInit: switch 5 is in service already",
                                        "doDeleteMroute: route 3 is not allocated",
                                        "doAllocateMroute: switch 5 is not in service"}));
}

TEST_F(SimSyncPlatform, VerificationAndAuditFindWhatTheMemoryLost) {
   RecordPtr const a = record(set({"et1"})), b = record(set({"et2"}));
   RouteHandle const r = route(1, a);
   boundary(2, 3);
   sw_->handleVerify();
   EXPECT_EQ(platform_->verified(), 2u);
   rewrite(a->oifSetIndex(), set({"et3"}));
   chip_->softError(r.value(), platform_->groupOf(b->oifSetIndex()));
   sw_->handleVerify();
   platform_->verifyMulticastRouting(true);
   EXPECT_EQ(platform_->differences().texts(),
             (Lines{"route 0 (10.0.0.1, 239.0.0.1): group 1 on the chip, recorded 0",
                    "route 0 (10.0.0.1, 239.0.0.1): group 0 differs from {et1}",
                    "multicast routing: enabled 0 on the chip, recorded 1"}));
   EXPECT_EQ(platform_->audit(), (Lines{"group 0 counts 1 routes, but 0 point at it",
                                        "group 1 counts 0 routes, but 1 point at it",
                                        "route 0 points at group 1 instead of 0"}));
   chip_->softError(r.value(), 0);
   a->dirtyIs(true);  // its group carries another set, and is meant to
   sw_->handleVerify();
   EXPECT_EQ(platform_->differences().count(), 3u);
   expectSound();
}

// Behind a switch with zombies, writes failing all the time: every route forwards as it was last
// told, the chip never sees a wrong write, and nothing is left at the end.
TEST_F(SimSyncPlatform, RandomFaultsLeaveNothingWrongAndNothingBehind) {
   l3_->multicastZombiesEnabledIs(true);
   std::pair<OifSetPtr, char const*> const sets[] = {
         {set({"et1"}), "et1"},           {set({"et2"}), "et2"},
         {set({"et3"}), "et3"},           {set({"et1", "et2"}), "et1 et2"},
         {set({"et1"}, true), "et1 cpu"}, {set({"et2", "et3"}), "et2 et3"},
         {set({}), "emptyGroup"},         {set({}, true), "cpu"}};
   for (unsigned seed = 1; seed <= 5; ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      build({4, 8, 1});
      platform_->faults().seedIs(seed);
      for (unsigned kind = 0; kind < Sim::writeKinds; ++kind)
         platform_->faults().rateIs(static_cast<WriteKind>(kind), 0.2);
      std::mt19937 random(seed);
      std::map<Qor::U32, std::pair<RouteHandle, char const*>> routes;  // by key
      for (int step = 0; step < 2000; ++step) {
         Qor::U32 const n = static_cast<Qor::U32>(random() % 10);
         auto const known = routes.find(n);
         if (random() % 4 == 0) {
            time_->advance(1);
            auto const& zombies = sw_->zombieOifSet();
            while (!zombies.empty() && zombies.begin()->first.expiryTime() <= time_->now())
               sw_->zombieOifSetDel(zombies.begin()->first);
         } else if (known != routes.end() && random() % 3 == 0) {
            sw_->doDeleteRoute(known->second.first);
            routes.erase(known);
         } else {
            auto const& [s, expected] = sets[random() % std::size(sets)];
            if (RecordPtr const to = record(s)) {
               if (known == routes.end()) {
                  if (RouteHandle const h = route(n, to); !h.isNull()) routes[n] = {h, expected};
               } else {
                  sw_->doSetMtableOifSet(known->second.first, to);
                  known->second.second = expected;
               }
            }
         }
         for (Qor::U32 k = 0; k < 10; ++k)
            EXPECT_EQ(receivers(k), routes.count(k) ? routes[k].second : "noRoute");
         expectSound();
         ASSERT_FALSE(HasFailure()) << "step " << step;
      }
      EXPECT_GT(platform_->faults().injected(), 100u);
      for (auto const& [n, r] : routes)
         sw_->doDeleteRoute(r.first);
      sw_->zombieOifSetDelAll();
      EXPECT_EQ(platform_->groupsAllocated() + platform_->emptySetsAllocated() +
                      platform_->routesAllocated(),
                0u);
      expectSound();
   }
}

}  // namespace
