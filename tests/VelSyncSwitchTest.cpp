// The synchronous programmer: its traces and hook calls, the sharing of indexes, the freeing of
// records, and its routes and boundary entries.
#include <cstdlib>
#include <functional>

#include "Qor/Type.h"
#include "VelSyncRecorder.h"

namespace velSync {
namespace {

std::string assertion(char const* expression) {
   return cat("Vel/VelSyncMroute[A-Za-z]+\\.cpp:[0-9]+: .*MrouteSwitch::.*: Assertion `",
              expression, "' failed\\.\n");
}

std::string freed(Qor::U32 index, OifSetPtr const& set) {
   return cat("hook handleFreeMtableOifSet 5 MtableOifSet(oifSetIndex ", index, ", ", set, ')');
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
   EXPECT_EQ(sw_->frrMtableOifSet(set), record);
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
   EXPECT_TRUE(journal_.like("2  Adding Frr").empty());
   // A failure has withdrawn the zombie.
   record = nullptr;
   sw_->frrMtableOifSetDel(set);
   record = allocate(set);
   EXPECT_EQ(sw_->frrMtableOifSet(set), record);
   EXPECT_EQ(journal_.count("2  Adding Frr oifSetIndex: 31"), 1);
   EXPECT_EQ(sw_->zombieOifSet().size(), 1u);  // the other set
}

TEST_F(VelSync, ADirtyIndexIsNotSharedAndThePlatformIsNotified) {
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

TEST_F(VelSync, EmptySetsNeverShareAndNeedNoRoom) {
   helper_->full = true;
   OifSetPtr const set = emptySet();
   RecordPtr const record = allocate(set);
   expectSaid(R"(
2 doAllocateMtableOifSet, PortVlanSet: {cpu}
hook doAllocateMtableOifSet 5 0 $
2 Empty port vlan set. OifSetIndex: 31
)",
              set);
   EXPECT_TRUE(record->toCpu());
   EXPECT_EQ(allocate(set)->oifSetIndex(), 32u);
   EXPECT_EQ(sw_->inUseOifSet().size() + sw_->oifSetIndexColl().size(), 0u);
}

TEST_F(VelSync, WithoutRoomTheResultIsNullAndThePlatformDecidesTheFlag) {
   l3_->multicastZombiesEnabledIs(false);
   RecordPtr first = allocate(oifSet());
   helper_->nextIndex = MrouteSwitch::invalidOifSetIndex();
   sw_->mtableOifSetIs(first);  // an earlier result
   EXPECT_EQ(allocate(oifSet()), nullptr);
   EXPECT_EQ(flags(), "0 0 0");
   helper_->full = true;
   sw_->mtableOifSetIs(first);
   EXPECT_EQ(allocate(oifSet()), nullptr);
   EXPECT_EQ(journal_.like("hook doAllocateMtableOifSet").size(), 2u);
   EXPECT_EQ(flags(), "0 0 0 no group");
   first = nullptr;
   EXPECT_EQ(flags(), "0 0 0");
}

// ---- Freeing ----

// All reasons to free or to keep a record hold at first, and each of them is dropped in its turn.
TEST_F(VelSync, TheFirstReasonThatHoldsDecidesWhetherARecordIsFreed) {
   char const* const says[] = {"3 OifSet resources already freed ",
                               "3 MrouteSwitch deletion - skipping delayed deletion of oifSet",
                               "3 Now freeing zombie oifSet",
                               "3 OifSet not used in hw - skipping delayed deletion",
                               "3 Zombies are not enabled",
                               "2 Adding zombie"};
   for (int reason = 0; reason <= 5; ++reason) {
      SCOPED_TRACE(says[reason]);
      begin();
      RecordPtr record = allocate(
            oifSet("et9", reason <= 3 ? RouteKeyType::softwareOnly : RouteKeyType::routed));
      record->deletedIs(reason == 0);
      sw_->deletedIs(reason <= 1);
      if (reason <= 2) {
         record->zombieIs(ZombieKey(31, 50));
         sw_->zombieOifSetIs(record);
      }
      l3_->multicastZombiesEnabledIs(reason > 4);
      sw_->zombieLifetimeIs(7.5);
      journal_.take();
      record = nullptr;
      sw_->zombieOifSetDel(ZombieKey(31, 50));
      EXPECT_EQ(journal_.count(says[reason]), 1);
      bool const freed = reason > 0 && reason < 5;
      EXPECT_EQ(journal_.like("hook").size(), freed);
      EXPECT_EQ(sw_->inUseOifSet().size() + sw_->oifSetIndexColl().size(), freed ? 0u : 2u);
      EXPECT_EQ(sw_->zombieOifSet(ZombieKey(31, 7.5)) != nullptr, reason == 5);
   }
}

TEST_F(VelSync, ARecordThatAFollowerHasResurrectedDoesNotWaitAmongTheZombies) {
   OifSetPtr const set = oifSet();
   RecordPtr record = allocate(set), resurrected;
   Qor::Following const follower(Qor::toGeneric(record), [&](Qor::Change const& change) {
      if (change.member == "zombie" && !resurrected) resurrected = allocate(set);
   });
   record = nullptr;
   EXPECT_TRUE(resurrected && sw_->zombieOifSet().empty());
}

// Adds a line for each notification of a record's collections, then calls the test's `then`.
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

TEST_F(VelSync, AFreedRecordLeavesAllCollectionsBeforeItsHookAndTheSwitchMayGoInBetween) {
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
   // A listener keeps the switch alive at its end.
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
   EXPECT_EQ(journal_.like("2 doDeleteRoute"),
             (Lines{"2 doDeleteRoute, vrfId: 7, Route: 1 (10.0.0.1, 239.0.0.1)",
                    "2 doDeleteRoute, Route: 1, oifSetIndex: 31"}));
   EXPECT_EQ(journal_.like("hook"),
             (Lines{"hook doDeleteMroute 5 7 1 (10.0.0.1, 239.0.0.1)", freed(31, set)}));
   EXPECT_EQ(flags(), "1 1 2");
   EXPECT_TRUE(sw_->route().empty() && sw_->routeKeyToHandle().empty());
}

TEST_F(VelSync, TheHookCallOfAnEntryFollowsFromKindIndexVrfAndSource) {
   allocateRoute(key(1), nullptr, 3, RpaIndex::none());
   sw_->doAllocateRoute(key(2), {}, false, allocate(oifSet()), true, true, RpaIndex(6),
                        L3::VrfName("unknown"));
   EXPECT_TRUE(sw_->route(sw_->routeHandle())->fastdrop());
   allocateBoundary(key(3), 4094);
   EXPECT_TRUE(allocateRoute(key(5), nullptr, 3, RpaIndex::notProgrammed()).isNull());
   allocateRoute(key(6));
   EXPECT_TRUE(allocateRoute(key("239.0.0.9", "239.0.0.1")).isNull());
   EXPECT_EQ(journal_.like("hook doAllocateMroute"),
             (Lines{"hook doAllocateMroute 5 7 (10.0.0.1, 239.0.0.1) 3 0 0 0 0",
                    "hook doAllocateMrouteNoRpf 5 0 (10.0.0.1, 239.0.0.2) 0 31 1 6",
                    "hook doAllocateMroute 5 7 (10.0.0.1, 239.0.0.3) 4094 1 0 0 0",
                    "hook doAllocateMroute 5 7 (10.0.0.1, 239.0.0.6) 3 0 0 0 0"}));
   EXPECT_EQ(flags(), "0 0 3");  // a boundary asks for no review
}

TEST_F(VelSync, OnlyATableThePlatformCallsFullIsFlaggedAndOnlyBoundariesBringRoomBack) {
   RouteHandle const r = allocateRoute(key(1)), b1 = allocateBoundary(key(2), 3),
                     b2 = allocateBoundary(key(3), 3);
   helper_->nextHandle = RouteHandle().value();
   for (char const* expected : {"0 0 1", "0 0 1 no route no boundary"}) {
      EXPECT_TRUE(allocateRoute(key(4)).isNull() && allocateBoundary(key(5), 3).isNull());
      EXPECT_EQ(flags(), expected);
      helper_->full = true;
   }
   sw_->doDeleteRoute(b1);
   EXPECT_EQ(flags(), "1 1 2 no route no boundary");
   helper_->full = false;
   sw_->doDeleteRoute(r);
   EXPECT_EQ(flags(), "2 2 3 no route no boundary");
   sw_->doDeleteRoute(b2);
   EXPECT_EQ(journal_.like("hook doDeleteMrouteBoundary").back(),
             "hook doDeleteMrouteBoundary 5 7 3 (10.0.0.1, 239.0.0.3)");
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

TEST_F(VelSync, EveryChangeAsksForAVerification) {
   RouteHandle const r = allocateRoute(key(1)), b = allocateBoundary(key(2), 3);
   OifSetPtr const set = oifSet();
   RecordPtr record;
   std::function<void()> const changes[] = {
         [&] { record = allocate(set); },
         [&] { allocateRoute(key(3), record); },
         [&] { sw_->doSetMtableOifSet(r, record); },
         [&] { sw_->doDeleteRoute(b); },
         [&] { record = nullptr, sw_->doDeleteRoute(r); },  // a zombie
         [&] { sw_->zombieOifSetDelAll(); }};
   auto const verify = acsd_->verifyData();
   verify->verifyRequiredIs(true);
   for (auto const& change : changes) {
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
   RecordPtr const record = allocate(oifSet());
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
}

// ---- The hook class ----

struct Bare final : VelHelper::MrouteSmHelper {
   Bare() : MrouteSmHelper("bare") {}
};

// All indexes and handles are 0.
TEST_F(VelSync, OnTheBareHookClassTheNewestHasTheIndexAndTheHandle) {
   setenv("VEL_NOOP_AGENT", "", 1);
   hwStatus_->rangeRouteHandleSharedIs(true);  // makes no difference
   sw_ = Vel::mrouteSwitchFactory("bare", 5, acsd_, l3_, Qor::make<Bare>(), nullptr, hwStatus_);
   std::vector<RouteHandle> handles;
   std::vector<OifSetPtr> const sets{oifSet(), oifSet(), oifSet("et9")};
   std::vector<IpGenRouteKey> const keys{key(1), key("0.0.0.0/0", "239.0.0.0/8"), key(3)};
   for (unsigned n = 0; n < 3; ++n) {
      RecordPtr const record = allocate(sets[n]);
      handles.push_back(allocateRoute(keys[n], record));
      sw_->doSetMtableOifSet(handles.back(), record);
      EXPECT_EQ(sw_->route(handles.back())->mtableOifSet(), record);
      EXPECT_EQ(sw_->routeKeyToHandle().begin()->first,
                Vel::RouteKeyVlanId(keys[n], VlanIdOrNone(3u)));
      handles.push_back(allocateBoundary(keys[n], 3 + n % 2));
      EXPECT_EQ(sw_->boundary(handles.back())->key(), keys[n]);
   }
   EXPECT_EQ(sw_->route().size() + sw_->routeKeyToHandle().size() + sw_->boundary().size(), 3u);
   EXPECT_EQ(sw_->zombieOifSet().size(), 1u);  // of the two that were replaced
   std::string const before = flags();
   RecordPtr const older = allocate(sets[0]);
   for (RouteHandle const handle : handles) {
      sw_->doDeleteRoute(handle);
      sw_->doSetMtableOifSet(handle, older);
   }
   EXPECT_EQ(before + " > " + flags(), "0 0 3 > 6 6 9");
   EXPECT_TRUE(sw_->route().empty() && sw_->boundary().empty());
   sw_->zombieOifSetDelAll();
   EXPECT_EQ(sw_->inUseOifSet().size(), 1u);
   sw_ = nullptr;
   unsetenv("VEL_NOOP_AGENT");
}

TEST(VelSyncHelperDeathTest, RequiredHooksStopTheProcessUnlessTheVariableIsPresent) {
   auto const bare = Qor::make<Bare>();
   setenv("VEL_NOOP_AGENT", "", 1);
   EXPECT_EQ(bare->doAllocateMtableOifSet(1, 0, nullptr), 0u);
   unsetenv("VEL_NOOP_AGENT");  // read at each call
   EXPECT_DEATH(bare->doAllocateMtableOifSet(1, 0, nullptr),
                "^This function must be implemented by derived class\n");
   EXPECT_EQ(bare->mrouteHitBitCacheRefresh(1), Bare::hitBitCacheRefreshed);
}

}  // namespace
}  // namespace velSync
