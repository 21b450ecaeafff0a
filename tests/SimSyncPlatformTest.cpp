// The synchronous platform of the simulated chip, mostly behind a table programmer: indexes of
// empty sets, hit bits, the end of service, and verification.
#include "SimTestSupport.h"
#include "Vel/VelSyncMrouteSwitch.h"
#include "platform/sim/SyncPlatform.h"

namespace {

using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Sim::SyncPlatform;
using RecordPtr = Qor::Ptr<Vel::MtableOifSet>;
using namespace testSupport;

constexpr Qor::U32 invalidIndex = SyncPlatform::invalidOifSetIndex;

class SimSyncPlatform : public OnSimulatedChip {
 protected:
   static constexpr Qor::U32 id = 5;

   SimSyncPlatform() {
      l3_->vrfNameToVrfIdIs("red", Vel::VrfId(7));
      l3_->multicastZombiesEnabledIs(false);
      buildChip({2, 3, 1});
      platform_ = Qor::make<SyncPlatform>("platform", chip_, id, Sim::SyncPlatformConfig());
      start();
   }
   void start() {
      sw_ = Vel::mrouteSwitchFactory("switch", id, nullptr, l3_, platform_, nullptr, nullptr);
   }

   RecordPtr record(OifSetPtr const& s) {
      sw_->doAllocateMtableOifSet(s);
      auto const result = Qor::ptrCast<Vel::MtableOifSet>(sw_->takeMtableOifSet());
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

TEST_F(SimSyncPlatform, EmptySetsNeedNoRoomInTheReplicationTable) {
   RecordPtr const full = record(set({"et1"})), more = record(set({"et2"}));
   RecordPtr const drop = record(set({})), cpu = record(set({}, true));
   EXPECT_EQ(record(drop->oifSet())->oifSetIndex(), 5u);
   RouteHandle const a = route(1, drop, 1);
   route(2, cpu, 0, false, "red");
   EXPECT_EQ(receivers(1, 1) + ' ' + receivers(2, 3, 7), "emptyGroup cpu");
   EXPECT_EQ(rewrite(4, set({}, true)), 4u);
   EXPECT_EQ(rewrite(4, set({})), invalidIndex);
   EXPECT_EQ(rewrite(4, set({"et1"})), invalidIndex);
   sw_->doSetMtableOifSet(a, full);
   EXPECT_EQ(receivers(1, 1), "et1");
   EXPECT_EQ(platform_->emptySetsAllocated() + chip_->groups(), 4u);
   expectSound();
}

TEST_F(SimSyncPlatform, ARefreshFindsTheEntriesThatWereHitSinceTheRefreshBefore) {
   RecordPtr const to = record(set({"et1"}));
   route(1, to, 1);
   route(1, to, 2, true);
   boundary(2, 3);
   auto const hits = [&] {
      Lines names;
      auto const look = [&](char const* name, Qor::U32 n, unsigned vlan, bool isBoundary) {
         Bridging::VlanIdOrNone const accepting(Qor::U64{vlan});
         if (platform_->mrouteHitBit(id, 0, key(n), accepting, isBoundary)) names.push_back(name);
      };
      look("route", 1, 1, false);
      look("fastdrop", 1, 2, false);
      look("boundary", 2, 3, true);
      return names;
   };
   receivers(1, 1);
   platform_->faults().hitBitsBusyNext(1);
   EXPECT_EQ(platform_->mrouteHitBitCacheRefresh(id), SyncPlatform::hitBitCacheBusy);
   EXPECT_EQ(hits(), Lines());
   EXPECT_EQ(platform_->mrouteHitBitCacheRefresh(id), SyncPlatform::hitBitCacheRefreshed);
   receivers(1, 2);
   receivers(2, 3);
   EXPECT_EQ(hits(), Lines{"route"});
   platform_->mrouteHitBitCacheClear(id);
   EXPECT_EQ(hits(), Lines());
   for (Lines const& expected : {Lines{"fastdrop", "boundary"}, Lines()}) {
      platform_->mrouteHitBitCacheRefresh(id);
      EXPECT_EQ(hits(), expected);
   }
}

TEST_F(SimSyncPlatform, TheEndOfServiceClearsTheChipAndALateFreeChangesNothing) {
   route(1, record(set({"et1"})));
   boundary(3, 1);
   auto const old = Vel::mtableOifSetFactory(set({"et2"}), false, nullptr);
   old->oifSetIndexIs(platform_->doAllocateMtableOifSet(id, 0, old->oifSet()));
   sw_ = nullptr;
   EXPECT_EQ(chip_->groups() + chip_->routes().size() + chip_->boundaries().size(), 0u);
   start();
   RecordPtr const a = record(set({"et1"})), b = record(set({"et2"}));
   route(1, a);
   route(2, b);
   platform_->handleFreeMtableOifSet(id, old);  // its index now belongs to another set
   EXPECT_EQ(receivers(1) + ' ' + receivers(2), "et1 et2");
   expectSound();
   platform_->handleFreeMtableOifSet(id, old);
   EXPECT_EQ(rewrite(99, set({"et1"})), invalidIndex);
   platform_->doDeleteMroute(id, 0, RouteHandle(3), nullptr);
   sw_ = nullptr;
   EXPECT_TRUE(platform_->doAllocateMroute(id, 0, key(1), {}, false, 0, false, 0).isNull());
   EXPECT_EQ(platform_->audit(), (Lines{"handleFreeMtableOifSet: oif set index 2 is not allocated",
                                        "doAllocateMtableOifSet: oif set index 99 is not allocated",
                                        "doDeleteMroute: route 3 is not allocated",
                                        "doAllocateMroute: switch 5 is not in service"}));
}

TEST_F(SimSyncPlatform, VerificationAndAuditFindAMemoryFault) {
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
                    "multicast routing: enabled false on the chip, recorded true"}));
   EXPECT_EQ(platform_->audit(), (Lines{"group 0 counts 1 routes, but 0 point at it",
                                        "group 1 counts 0 routes, but 1 point at it",
                                        "route 0 points at group 1 instead of 0"}));
   chip_->softError(r.value(), 0);
   a->dirtyIs(true);  // the group of a dirty record may have other members
   sw_->handleVerify();
   EXPECT_EQ(platform_->differences().count(), 3u);
   expectSound();
}

}  // namespace
