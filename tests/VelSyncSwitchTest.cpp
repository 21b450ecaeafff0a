// The synchronous programmer: what it says and calls, who shares an index, what becomes of records,
// and its routes and boundary entries.
#include <cstdlib>
#include <functional>

#include "VelSyncRecorder.h"

namespace velSync {
namespace {

std::string assertion(char const* expression) {
   return cat("Vel/VelSyncMroute[A-Za-z]+\\.cpp:[0-9]+: .*MrouteSwitch::.*: Assertion `",
              expression, "' failed\\.\n");
}

// ---- Oif sets ----

TEST_F(VelSync, ASetIsPlacedOnceSharedByIdentityAndBroughtBackFromTheZombies) {
   OifSetPtr const set = oifSet("et9");
   RecordPtr record = allocate(set);
   expectSaid(R"(
2 doAllocateMtableOifSet, PortVlanSet: {et1 iif et9}
2 Non-empty port vlan set
hook mtableFull 5
hook doAllocateMtableOifSet 5 0 $
2  Adding Frr oifSetIndex: 31
2 Allocated oifSetIndex: 31
)",
              set);
   EXPECT_EQ(sw_->inUseRecord(set), record);
   EXPECT_EQ(sw_->frrMtableOifSet(set).get(), record.get());
   EXPECT_TRUE(sw_->oifSetIndexColl(31));
   EXPECT_EQ(allocate(oifSet("et9"))->oifSetIndex(), 32u);  // equal, and another
   journal_.take();

   time_->advance(1.5);
   record = nullptr;
   expectSaid(R"(
3 doCleanup (oifset): MtableOifSet(oifSetIndex 31, $)
2 handleFreeMtableOifSet, OifSet: MtableOifSet(oifSetIndex 31, $), OifSetIndex: 31
2 Adding zombie
)",
              set);
   record = sw_->zombieOifSet(ZombieKey(31, 5.5));
   ASSERT_NE(record, nullptr);
   EXPECT_EQ(allocate(set), record);
   expectSaid(R"(
2 doAllocateMtableOifSet, PortVlanSet: {et1 iif et9}
2 Non-empty port vlan set
2 Found an existing oif set
2 Resurrecting zombie oifSetIndex: 0x1f
2 Sharing existing oifSetIndex: 31
)");
   EXPECT_EQ(record->zombie(), ZombieKey());
   EXPECT_EQ(allocate(set), record);
   EXPECT_EQ(journal_.count("2 Found an existing oif set"), 1);
   EXPECT_EQ(sw_->zombieOifSet().size(), 1u);  // the other set
}

TEST_F(VelSync, ADirtyIndexIsNotSharedAndThePlatformIsToldOfIt) {
   OifSetPtr const set = oifSet("et9");
   std::vector<RecordPtr> records{allocate(set)};
   for (Qor::U32 const dirtyIndex : {31u, 0u}) {
      records.back()->oifSetIndexIs(dirtyIndex);
      records.back()->dirtyIs(true);
      journal_.take();
      records.push_back(allocate(set));
      EXPECT_EQ(journal_.count(cat("2 Existing dirty oifSetIndex: ", dirtyIndex)), 1);
      EXPECT_EQ(journal_.like("hook do"), Lines{cat("hook doAllocateMtableOifSet 5 ",
                                                    dirtyIndex ? "4294967294 " : "0 ", set)});
      EXPECT_EQ(sw_->inUseRecord(set), records.back());
   }
   EXPECT_EQ(records.back()->oifSetIndex(), 33u);
   // Its end takes the entries of the set along, though they name a newer record by now.
   l3_->multicastZombiesEnabledIs(false);
   sw_->frrProcessingOifSetIs(set, records.back().get());
   records.erase(records.begin());
   EXPECT_EQ(sw_->inUseRecord(set), nullptr);
   EXPECT_TRUE(sw_->frrMtableOifSet().empty() && sw_->frrProcessingOifSet().empty());
   EXPECT_TRUE(sw_->oifSetIndexColl(33));

   MrouteLib::PortVlanSet both(RouteKeyType::routed);
   both.newPortVlan(pv("et1"), true);
   both.toCpuIs(true);
   records.push_back(allocate(Qor::make<MrouteLib::OifSet>(nullptr, both)));
   EXPECT_TRUE(records.back()->toCpu());
   EXPECT_TRUE(sw_->frrMtableOifSet().empty());  // it uses none
}

std::string freed(Qor::U32 index, OifSetPtr const& set) {
   return cat("hook handleFreeMtableOifSet 5 MtableOifSet(oifSetIndex ", index, ", ", set, ')');
}

TEST_F(VelSync, EmptySetsNeverShareAndNeedNoRoom) {
   helper_->full = true;
   OifSetPtr const set = emptySet();
   RecordPtr record = allocate(set);
   expectSaid(R"(
2 doAllocateMtableOifSet, PortVlanSet: {cpu}
hook doAllocateMtableOifSet 5 0 $
2 Empty port vlan set. OifSetIndex: 31
)",
              set);
   EXPECT_TRUE(record->toCpu());
   EXPECT_EQ(allocate(set)->oifSetIndex(), 32u);
   EXPECT_EQ(sw_->inUseOifSet().size() + sw_->oifSetIndexColl().size(), 0u);
   l3_->multicastZombiesEnabledIs(false);
   journal_.take();
   record = nullptr;
   EXPECT_EQ(journal_.like("hook"), Lines{freed(31, set)});
}

TEST_F(VelSync, WithoutRoomTheResultIsNullAndTheFlagIsThePlatformsWord) {
   l3_->multicastZombiesEnabledIs(false);
   RecordPtr first = allocate(oifSet()), second = allocate(oifSet());
   helper_->nextIndex = MrouteSwitch::invalidOifSetIndex();
   sw_->mtableOifSetIs(first);  // an earlier result
   EXPECT_EQ(allocate(oifSet()), nullptr);
   EXPECT_EQ(journal_.count("2 Full multicast replication table. Skipping oif allocation"), 1);
   EXPECT_EQ(flags(), "0 0 0");
   helper_->full = true;
   sw_->mtableOifSetIs(first);
   EXPECT_EQ(allocate(oifSet()), nullptr);
   EXPECT_EQ(journal_.count("2 No multicast group available. Skipping oif allocation"), 1);
   EXPECT_EQ(journal_.like("hook doAllocateMtableOifSet").size(), 3u);
   EXPECT_EQ(flags(), "0 0 0 no group");
   for (RecordPtr* record : {&first, &second}) {
      *record = nullptr;
      EXPECT_EQ(journal_.count("2 Free space now available in multicast group table"), 1);
      EXPECT_EQ(flags(), "0 0 0");
   }
}

// ---- Freeing ----

TEST_F(VelSync, TheFirstMatchingRowDecidesWhatBecomesOfARecord) {
   for (unsigned row = 0; row < 32; ++row) {
      SCOPED_TRACE(row);
      bool const facts[] = {bool(row & 16), bool(row & 8), bool(row & 4), bool(row & 2),
                            bool(row & 1)};
      char const* const says[] = {"3 OifSet resources already freed ",
                                  "3 MrouteSwitch deletion - skipping delayed deletion of oifSet",
                                  "3 Now freeing zombie oifSet",
                                  "3 OifSet not used in hw - skipping delayed deletion",
                                  "3 Zombies are not enabled",
                                  "2 Adding zombie"};
      auto const reason = std::find(facts, facts + 5, true) - facts;
      begin();
      RecordPtr record =
            allocate(oifSet("et9", facts[3] ? RouteKeyType::softwareOnly : RouteKeyType::routed));
      record->deletedIs(facts[0]);
      sw_->deletedIs(facts[1]);
      if (facts[2]) {
         record->zombieIs(ZombieKey(31, 50));
         sw_->zombieOifSetIs(record);
      }
      l3_->multicastZombiesEnabledIs(!facts[4]);
      sw_->zombieLifetimeIs(7.5);
      journal_.take();
      record = nullptr;
      if (facts[2]) sw_->zombieOifSetDel(ZombieKey(31, 50));
      EXPECT_EQ(journal_.count(says[reason]), 1);
      bool const freed = reason > 0 && reason < 5;
      EXPECT_EQ(journal_.like("hook").size(), freed);
      EXPECT_EQ(sw_->inUseOifSet().size() + sw_->oifSetIndexColl().size(), freed ? 0u : 2u);
      EXPECT_EQ(sw_->zombieOifSet().size(), reason == 5);
      EXPECT_EQ(sw_->zombieOifSet(ZombieKey(31, 7.5)) != nullptr, reason == 5);
   }
   EXPECT_EQ(errorText([&] { sw_->zombieLifetimeIs(-1); }),
             "MrouteSwitch::zombieLifetime < 0 or not finite not allowed");
   EXPECT_EQ(errorText([&] { sw_->zombieOifSetIs(nullptr); }),
             "null _zombieOifSet parameter to mutator for Vel::MrouteSwitch::zombieOifSet not "
             "allowed\"");
}

// Tells the journal about the collections of freeing, and does what a test asks when it is told.
struct Watcher final : MrouteSwitch::Notifiee {
   explicit Watcher(Journal& j) : journal(j) {}
   void tell(char const* what) {
      journal.add(cat("told ", what));
      if (then) then(what);
   }
   void onInUseOifSet(OifSetPtr const&) override { tell("inUseOifSet"); }
   void onZombieOifSet(ZombieKey const&) override { tell("zombieOifSet"); }
   void onFrrMtableOifSet(OifSetPtr const&) override { tell("frrMtableOifSet"); }
   void onFrrProcessingOifSet(OifSetPtr const&) override { tell("frrProcessingOifSet"); }
   void onOifSetIndexColl(Qor::U32) override { tell("oifSetIndexColl"); }
   Journal& journal;
   std::function<void(std::string const&)> then;
};

TEST_F(VelSync, AFreedRecordLeavesAllCollectionsBeforeThePlatformHearsAndTheSwitchMayGoMeanwhile) {
   for (std::string const moment : {"never", "inUseOifSet", "zombieOifSet", "frrMtableOifSet",
                                    "frrProcessingOifSet", "oifSetIndexColl"}) {
      SCOPED_TRACE(moment);
      begin();
      OifSetPtr const set = oifSet("et9");
      RecordPtr record = allocate(set);
      sw_->frrProcessingOifSetIs(set, record.get());
      record = nullptr;
      Watcher watcher(journal_);
      watcher.notifierIs(sw_);
      watcher.then = [&](std::string const& what) {
         if (what == moment) sw_ = nullptr;
      };
      journal_.take();
      MrouteSwitch* const address = sw_.get();
      address->zombieOifSetDel(ZombieKey(31, 4));
      if (moment != "never") {
         EXPECT_EQ(watcher.notifier(), nullptr);
         EXPECT_EQ(journal_.like("hook").size(), 2u);  // the free, and the end of the switch
         continue;
      }
      expectSaid(R"(
told zombieOifSet
3 doCleanup (oifset): MtableOifSet(oifSetIndex 31, $)
2 handleFreeMtableOifSet, OifSet: MtableOifSet(oifSetIndex 31, $), OifSetIndex: 31
3 Now freeing zombie oifSet
2 Freeing OifSetIndex: 31
told inUseOifSet
told frrMtableOifSet
told frrProcessingOifSet
told oifSetIndexColl
hook handleFreeMtableOifSet 5 MtableOifSet(oifSetIndex 31, $)
)",
                 set);
   }
}

TEST_F(VelSync, TheEndClearsTheChipOnceFreesRecordsAtOnceAndOthersOutliveIt) {
   OifSetPtr const routes = oifSet(), zombies = oifSet();
   sw_->doSetMtableOifSet(allocateRoute(key(1)), allocate(routes));
   allocateBoundary(key(2), 3);
   allocate(zombies);
   RecordPtr held = allocate(oifSet());
   // A listener keeps the switch from going when it ends.
   struct Listener final : MrouteSwitch::Notifiee {
      void onDeleted() override { kept = notifier(); }
      Qor::Ptr<MrouteSwitch const> kept;
   } listener;
   listener.notifierIs(sw_);
   journal_.take();
   sw_ = nullptr;
   listener.notifierIs(nullptr);
   EXPECT_TRUE(listener.kept->route().empty() && listener.kept->boundary().empty());
   listener.kept = nullptr;
   EXPECT_EQ(held->mrouteSwitch(), nullptr);
   held = nullptr;
   EXPECT_EQ(journal_.like("hook"),
             (Lines{"hook mrouteSwitchInit 5 0", freed(31, routes), freed(32, zombies)}));
}

// ---- Routes and boundary entries ----

TEST_F(VelSync, ARouteIsProgrammedPointedAndDeleted) {
   OifSetPtr const set = oifSet();
   RecordPtr record = allocate(set);
   journal_.take();
   RouteHandle const handle = allocateRoute(key(1), record, 3, RpaIndex(4));
   EXPECT_EQ(sw_->routeKeyToHandle({key(1), VlanIdOrNone(3u)}), handle);
   EXPECT_EQ(cat(sw_->route(handle)->vrfId(), sw_->route(handle)->rpaId()), "74");
   EXPECT_EQ(sw_->route(handle)->mtableOifSet(), nullptr);
   for (int again = 0; again < 2; ++again)
      sw_->doSetMtableOifSet(handle, record);
   expectSaid(R"(
2 doAllocateRoute , Key: (10.0.0.1, 239.0.0.1), AcceptingVlanId: 3, Bridge: 0, fastDrop: 0, noRpf0, rpaId: 4, oifSet: MtableOifSet(oifSetIndex 31, $), VRF: red
hook doAllocateMroute 5 7 (10.0.0.1, 239.0.0.1) 3 0 31 0 4
2 doSetMtableOifSet, vrfId: 7, Route: 1, key: (10.0.0.1, 239.0.0.1), iif 3, fastdrop: 0, oifSetIndex: 31
hook doSetMtableOifSet 5 7 1 (10.0.0.1, 239.0.0.1) 31
2 doSetMtableOifSet, vrfId: 7, Route: 1, key: (10.0.0.1, 239.0.0.1), iif 3, fastdrop: 0, oifSetIndex: 31
2 Mroute unchanged, nothing to do
)",
              set);
   EXPECT_EQ(flags(), "0 0 1");
   l3_->multicastZombiesEnabledIs(false);
   record = nullptr;  // the route holds it
   sw_->doDeleteRoute(handle);
   expectSaid(R"(
2 doDeleteRoute, vrfId: 7, Route: 1 (10.0.0.1, 239.0.0.1)
hook doDeleteMroute 5 7 1 (10.0.0.1, 239.0.0.1)
2 doDeleteRoute, Route: 1, oifSetIndex: 31
3 doCleanup (oifset): MtableOifSet(oifSetIndex 31, $)
2 handleFreeMtableOifSet, OifSet: MtableOifSet(oifSetIndex 31, $), OifSetIndex: 31
3 Zombies are not enabled
2 Freeing OifSetIndex: 31
hook handleFreeMtableOifSet 5 MtableOifSet(oifSetIndex 31, $)
)",
              set);
   EXPECT_EQ(flags(), "1 1 2");
   EXPECT_TRUE(sw_->route().empty() && sw_->routeKeyToHandle().empty());
}

TEST_F(VelSync, WhatIsAskedOfThePlatformFollowsFromKindIndexVrfAndSource) {
   allocateRoute(key(1), nullptr, 3, RpaIndex::none());
   sw_->doAllocateRoute(key(2), {}, false, allocate(oifSet()), true, true, RpaIndex(6),
                        L3::VrfName("unknown"));
   EXPECT_TRUE(sw_->route(sw_->routeHandle())->fastdrop());
   allocateBoundary(key(3), 4094);
   EXPECT_EQ(sw_->boundary(sw_->routeHandle())->vrfId(), 7u);
   sw_->doCommitRouteBatch();
   EXPECT_EQ(errorText([&] { allocateBoundary(key(4), 0); }),
             "VlanId::value < 1 or > 4094 not allowed");
   EXPECT_TRUE(allocateRoute(key(5), nullptr, 3, RpaIndex::notProgrammed()).isNull());
   allocateRoute(key(6));
   EXPECT_TRUE(allocateRoute(key("239.0.0.9", "239.0.0.1")).isNull());
   EXPECT_EQ(journal_.count("2 Multicast source address for mroute"), 1);
   EXPECT_EQ(journal_.like("hook do"),
             (Lines{"hook doAllocateMroute 5 7 (10.0.0.1, 239.0.0.1) 3 0 0 0 0",
                    cat("hook doAllocateMtableOifSet 5 0 ", sw_->inUseOifSet().begin()->first),
                    "hook doAllocateMrouteNoRpf 5 0 (10.0.0.1, 239.0.0.2) 0 31 1 6",
                    "hook doAllocateMroute 5 7 (10.0.0.1, 239.0.0.3) 4094 1 0 0 0",
                    "hook doCommitMrouteBatch",
                    "hook doAllocateMroute 5 7 (10.0.0.1, 239.0.0.6) 3 0 0 0 0"}));
   EXPECT_EQ(flags(), "0 0 3");  // a boundary asks for no review
}

TEST_F(VelSync, OnlyWhatThePlatformSaysIsFullIsFlaggedAndOnlyBoundariesBringRoomBack) {
   RouteHandle const r = allocateRoute(key(1)), b1 = allocateBoundary(key(2), 3),
                     b2 = allocateBoundary(key(3), 3);
   helper_->nextHandle = RouteHandle().value();
   for (char const* expected : {"0 0 1", "0 0 1 no route no boundary"}) {
      EXPECT_TRUE(allocateRoute(key(4)).isNull() && allocateBoundary(key(5), 3).isNull());
      EXPECT_EQ(flags(), expected);
      helper_->full = true;
   }
   EXPECT_EQ(journal_.like("2 Full"), (Lines{"2 Full mroute table", "2 Full boundary table"}));
   sw_->doDeleteRoute(b1);
   EXPECT_EQ(flags(), "1 1 2 no route no boundary");
   helper_->full = false;
   sw_->doDeleteRoute(r);
   EXPECT_EQ(flags(), "2 2 3 no route no boundary");
   journal_.take();
   sw_->doDeleteRoute(b2);
   expectSaid(R"(
2 doDeleteRoute, Boundary: 3
hook doDeleteMrouteBoundary 5 7 3 (10.0.0.1, 239.0.0.3)
hook mrouteBoundaryFull 5
2 Boundary entries now available - set boundaryTcamFree true
)");
   EXPECT_EQ(flags(), "3 3 4 no route");
}

TEST_F(VelSync, AHandleIsOneRoutesButForRangesWhereTheHardwareSharesThem) {
   IpGenRouteKey const range = key("0.0.0.0/0", "239.0.0.0/8");
   hwStatus_->rangeRouteHandleSharedIs(true);
   for (int again = 0; again < 2; ++again) {
      helper_->nextHandle = 8;
      EXPECT_EQ(allocateRoute(range), RouteHandle(8));
      EXPECT_EQ(allocateRoute(key("0.0.0.0/0", "224.0.0.0/4")), RouteHandle(9));
   }
   EXPECT_EQ(sw_->route().size(), 2u);
   std::string const text =
         "Reinstantiating the pointer interface where constructor parameter attribute _";
   using Error = Qor::ReinstantiationException;
   VlanIdOrNone const three(3u), four(4u);
   EXPECT_EQ(errorText<Error>([&] { sw_->routeIs(RouteHandle(8), key(1), three); }),
             text + "key has a different value of " + range.strep());
   EXPECT_EQ(errorText<Error>([&] { sw_->routeIs(RouteHandle(8), range, four); }),
             text + "acceptingVlanId has a different value of 3");
   RouteHandle const b = allocateBoundary(key(1), 3);
   EXPECT_EQ(errorText<Error>([&] { sw_->boundaryIs(b, key(2), Bridging::VlanId(3)); }),
             text + "key has a different value of " + key(1).strep());
   EXPECT_EQ(errorText<Error>([&] { sw_->boundaryIs(b, key(1), Bridging::VlanId(4)); }),
             text + "acceptingVlanId has a different value of 3");
}

TEST_F(VelSync, VerificationWalksEverythingAndIsAskedForByEveryChange) {
   RouteHandle const r = allocateRoute(key(1)), b = allocateBoundary(key(2), 3);
   journal_.take();
   sw_->handleVerify();
   expectSaid(R"(
2 handleVerify, switch # 5
2 Verifying route 1
hook verifyMroute 5 7 1
2 Verifying boundary
hook verifyMrouteBoundary 5 7 2
)");
   OifSetPtr const set = oifSet();
   RecordPtr record;
   std::function<void()> const changes[] = {
         [&] { record = allocate(set); },
         [&] { allocate(set); },
         [&] { allocateRoute(key(3), record); },
         [&] { sw_->doSetMtableOifSet(r, record); },
         [&] { sw_->doDeleteRoute(b); },
         [&] { record = nullptr, sw_->doDeleteRoute(r); },  // a zombie
         [&] { sw_->zombieOifSetDelAll(); },
         [&] { record = allocate(emptySet()); }};
   auto const verify = acsd_->verifyData();
   for (auto const& change : changes) {
      verify->verifyRequiredIs(true);
      change();
      EXPECT_TRUE(verify->reverify()) << &change - changes;
      verify->reverifyIs(false);
   }
   verify->verifyRequiredIs(false);
   allocate(set);
   EXPECT_FALSE(verify->reverify());
}

using VelSyncDeathTest = VelSync;

TEST_F(VelSyncDeathTest, BrokenInvariantsStopTheProcessWithTheirExpression) {
   RouteHandle const r = allocateRoute(key(1)), b = allocateBoundary(key(2), 3);
   RecordPtr record = allocate(oifSet());
   EXPECT_DEATH(sw_->doAllocateRoute(key(3), VlanIdOrNone(3u), false, nullptr, false, true, {}, {}),
                assertion("!noRpf \\|\\| acceptingVlanId\\.isNone\\(\\)"));
   EXPECT_DEATH(sw_->doSetMtableOifSet(b, record), assertion("mroute"));
   EXPECT_DEATH(sw_->doSetMtableOifSet(r, nullptr), assertion("oif"));
   EXPECT_DEATH(sw_->doDeleteRoute(RouteHandle(9)), assertion("bnd"));
   helper_->nextHandle = 1;
   EXPECT_DEATH(allocateRoute(key("0.0.0.0/0", "239.0.0.0/8")), assertion("!route\\( handle \\)"));
   hwStatus_->rangeRouteHandleSharedIs(true);
   EXPECT_DEATH(allocateRoute(key(3)), assertion("!route\\( handle \\)"));
   helper_->nextHandle = 2;
   EXPECT_DEATH(allocateBoundary(key(3), 3), assertion("!boundary\\( handle \\)"));
   l3_->vrfNameToVrfIdIs("red", Vel::VrfId(0x10000));
   EXPECT_DEATH(allocateRoute(key(3)), assertion("vrfId <= 0xFFFF"));
   helper_->nextIndex = 31;
   EXPECT_DEATH(allocate(oifSet()), assertion("oifSetIndexColl\\( oifSetIndex \\) == false"));
   helper_->nextIndex = MrouteSwitch::invalidOifSetIndex();
   EXPECT_DEATH(allocate(emptySet()), assertion("oifSetIndex != invalidOifSetIndex\\(\\)"));
   l3_->multicastZombiesEnabledIs(false);
   record->oifSetIndexIs(MrouteSwitch::invalidOifSetIndex());
   EXPECT_DEATH(record = nullptr,
                assertion("oifSet->oifSetIndex\\(\\) != invalidOifSetIndex\\(\\)"));
   record->oifSetIndexIs(31);
}

// ---- Keys, records, and the hook class ----

TEST(VelSyncKeys, OrderByExpiryAndByRouteAndReadBackFromTheirStringForms) {
   ZombieKey const zombies[] = {{9, 1.5}, {2, 2.0}, {3, 2.0}, {1, Qor::maxFinite}, {}};
   for (unsigned i = 1; i < std::size(zombies); ++i)
      EXPECT_TRUE(zombies[i - 1] < zombies[i] && !(zombies[i] < zombies[i - 1]));
   EXPECT_TRUE(zombies[3].isZombie() && !zombies[4].isZombie());
   using Vel::RouteKeyVlanId;
   RouteKeyVlanId const keys[] = {
         {key(1), {}}, {key(1), VlanIdOrNone(2u)}, {key(1), VlanIdOrNone(300u)}, {key(2), {}}};
   for (unsigned i = 1; i < std::size(keys); ++i) {
      EXPECT_TRUE(keys[i - 1] < keys[i] && keys[i - 1] <= keys[i] && keys[i] > keys[i - 1]);
      EXPECT_TRUE(keys[i] >= keys[i] && !(keys[i] < keys[i]) && !(keys[i - 1] >= keys[i]));
   }
   EXPECT_EQ(zombies[0].strep(), "Value('Vel::ZombieKey', ** {'groupId': 9, 'expiryTime': 1.5})");
   EXPECT_EQ(ZombieKey(zombies[0].strep()), zombies[0]);
   EXPECT_EQ(keys[1].strep(),
             cat("Value('Vel::RouteKeyVlanId', ** {'route': ", key(1).strep(), ", 'vlan': 2})"));
   EXPECT_EQ(RouteKeyVlanId(keys[1].strep()), keys[1]);
   EXPECT_THROW(RouteKeyVlanId(keys[1].strep() + ' '), Qor::RangeException);
}

// The required hooks; each returns whether it gave its neutral value.
using Helper = VelHelper::MrouteSmHelper;
bool (*const requiredHooks[])(Helper&) = {
      [](auto& h) { return h.mrouteInit(true), true; },
      [](auto& h) { return h.handleMulticastRouting(true), true; },
      [](auto& h) { return h.verifyMulticastRouting(true), true; },
      [](auto& h) { return h.mrouteSwitchInit(1, true), true; },
      [](auto& h) { return h.doAllocateMtableOifSet(1, 0, nullptr) == 0; },
      [](auto& h) { return h.doReallocateMtableOifSet(1, 0, nullptr) == 0; },
      [](auto& h) { return h.handleFreeMtableOifSet(1, nullptr), true; },
      [](auto& h) { return h.doAllocateMroute(1, 0, {}, {}, 0, 0, 0, 0) == RouteHandle(0); },
      [](auto& h) { return h.doAllocateMrouteNoRpf(1, 0, {}, 0, 0, 0, 0) == RouteHandle(0); },
      [](auto& h) { return h.doSetMtableOifSet(1, 0, RouteHandle(1), nullptr, 0), true; },
      [](auto& h) { return h.doDeleteMroute(1, 0, RouteHandle(1), nullptr), true; },
      [](auto& h) { return h.doDeleteMrouteBoundary(1, 0, RouteHandle(1), nullptr), true; },
      [](auto& h) { return !h.mrouteFull(1); },
      [](auto& h) { return !h.mrouteBoundaryFull(1); },
      [](auto& h) { return !h.mtableFull(1); },
      [](auto& h) { return !h.mrouteHitBit(1, 0, {}, {}, false); },
      [](auto& h) { return h.verifyMroute(1, 0, nullptr), true; },
      [](auto& h) { return h.verifyMrouteBoundary(1, 0, nullptr), true; },
};

TEST(VelSyncHelperDeathTest, RequiredHooksStopTheProcessUnlessTheVariableIsPresent) {
   struct Bare final : Helper {
      Bare() : MrouteSmHelper("bare") {}
   };
   auto const bare = Qor::make<Bare>();
   for (auto const hook : requiredHooks) {
      setenv("VEL_NOOP_AGENT", "", 1);
      EXPECT_TRUE(hook(*bare));
      unsetenv("VEL_NOOP_AGENT");  // read at each call
      EXPECT_DEATH(hook(*bare), "^This function must be implemented by derived class\n");
   }
   bare->handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode::bytes);
   EXPECT_EQ(bare->doCreateMrouteCounter(0, key(1)) + bare->doReadMrouteCounter(key(1)), 0u);
   bare->doClearMrouteCounter(key(1));
   bare->doDeleteMrouteCounter(key(1));
   bare->ageOutHwMcastCounter(key(1));
   bare->doCommitMrouteBatch();
   EXPECT_EQ(bare->mrouteHitBitCacheRefresh(1), Helper::hitBitCacheRefreshed);
   bare->mrouteHitBitCacheClear(1);
   bare->triggerRouteAgingReview();
}

}  // namespace
}  // namespace velSync
