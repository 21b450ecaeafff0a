// Routes of the asynchronous programmer, and the hook class's own behaviour.
#include <bit>
#include <cstdlib>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

using MrouteLib::MrouteFailureReason;

class VelAsyncRoutes : public VelAsync {
 protected:
   static InUseRouteHandleKey inUse(IpGenRouteKey const& key, unsigned vlan = 0) {
      return {key, Bridging::VlanIdOrNone(vlan), Vel::VrfId(vrfId)};
   }
   // Every handle's key leads back to it, and nothing else is in either collection.
   void expectMirrored(unsigned routes) {
      EXPECT_EQ(sw->inUseRouteHandle().size(), routes);
      EXPECT_EQ(sw->inUseRouteHandleKey().size(), routes);
      for (auto const& [handle, key] : sw->inUseRouteHandleKey())
         EXPECT_EQ(sw->inUseRouteHandle(key), handle);
   }
};

TEST_F(VelAsyncRoutes, AllocatingARecordsItBothWays) {
   sw->mrouteFailureReasonIs(MrouteFailureReason::noMulticastId);
   journal.take();
   sw->doAllocateRoute(routeKey(), Bridging::VlanIdOrNone(12u), true,
                       Wisp::Multicast::Fib::RpaIndex(9), L3::VrfName("default"));
   EXPECT_EQ(journal.take(),
             (Lines{"8 AsyncMrouteSwitch::doAllocateRoute( (10.0.0.2, 239.1.1.1), acceptingVlanId "
                    "12, bridgeAction 1, rpaId 9, vrf default )",
                    "hook doAllocateRoute (10.0.0.2, 239.1.1.1) 12 1 9 3",
                    "7 rh 1 -> (10.0.0.2, 239.1.1.1) vlan12 vrfId 3"}));
   EXPECT_EQ(sw->mrouteFailureReason(), MrouteFailureReason::none);
   EXPECT_EQ(sw->routeHandle(), RouteHandle(1));
   EXPECT_EQ(sw->inUseRouteHandle(inUse(routeKey(), 12)), RouteHandle(1));
   EXPECT_EQ(sw->inUseRouteHandleKey(RouteHandle(1)), inUse(routeKey(), 12));
   EXPECT_EQ(sw->inUseRouteHandleKey(RouteHandle(2)), InUseRouteHandleKey());
   EXPECT_EQ(sw->dumpRouteHandle(RouteHandle(2)), "?");
   expectMirrored(1);
}

TEST_F(VelAsyncRoutes, WithoutAVrfNoHookIsCalledAndTheEarlierHandleStands) {
   allocateRoute();
   journal.take();
   sw->doAllocateRoute(routeKey("10.0.0.3"), {}, false, {}, L3::VrfName("red"));
   EXPECT_EQ(
         journal.take(),
         (Lines{"8 AsyncMrouteSwitch::doAllocateRoute( (10.0.0.3, 239.1.1.1), acceptingVlanId "
                "0, bridgeAction 0, rpaId 0, vrf red )",
                "8  vrfStatus for vrf: red is not present", "blip  no vrfStatus for vrf: red"}));
   EXPECT_EQ(sw->mrouteFailureReason(), MrouteFailureReason::noVrfStatus);
   EXPECT_EQ(sw->routeHandle(), RouteHandle(1));
   expectMirrored(1);
   auto const blind = Vel::Mroute::asyncMrouteSwitchFactory("blind", nullptr, helper);
   blind->doAllocateRoute(routeKey(), {}, false, {}, L3::VrfName("default"));
   EXPECT_EQ(blind->mrouteFailureReason(), MrouteFailureReason::noVrfStatus);
}

TEST_F(VelAsyncRoutes, WithoutAHandleNothingIsRecorded) {
   helper->routeRoom = 0;
   EXPECT_TRUE(allocateRoute().isNull());
   EXPECT_EQ(static_cast<Qor::U32>(sw->mrouteFailureReason()), 1024u);
   expectMirrored(0);
}

TEST_F(VelAsyncRoutes, PointingARouteAtARecordUsesItInHardwareAtOnce) {
   RouteHandle const handle = allocateRoute();
   RecordPtr const record = allocate(oifSet());
   sw->mrouteFailureReasonIs(MrouteFailureReason::noMulticastId);
   journal.take();
   Hux::XactPtr const xact = sw->doSetMtableOifSet(handle, record, Qor::make<Hux::Xact>());
   EXPECT_EQ(journal.take(),
             (Lines{"8 AsyncMrouteSwitch::doSetMtableOifSet( 1 )",
                    cat("7  rh 1 -> mt ", *record, " oifset ", record->oifSet(), " {et1}"),
                    "hook doSetMtableOifSet 1 100 blocked", "hook doScheduleVerify",
                    "hook doGetXactForIngress 1"}));
   EXPECT_EQ(xact, helper->xactOf.at("route 1"));
   EXPECT_TRUE(xact->pending() && record->usedInHw());
   EXPECT_EQ(sw->mrouteFailureReason(), MrouteFailureReason::none);
   sw->doDeleteRoute(handle);
}

TEST_F(VelAsyncRoutes, DeletingForgetsBothWaysAndTellsThePlatform) {
   RouteHandle const handle = allocateRoute(routeKey(), 12);
   journal.take();
   for (char const* dump : {"(10.0.0.2, 239.1.1.1) vlan12 vrfId 3", "?"}) {  // then it is unknown
      char const* route = *dump == '?' ? "(invalid)" : "(10.0.0.2, 239.1.1.1)";
      sw->doDeleteRoute(handle);
      EXPECT_EQ(journal.take(),
                (Lines{"8 AsyncMrouteSwitch::doDeleteRoute( 1 )", cat("7  rh 1 ", dump),
                       cat("blip AsyncMrouteSwitch::doDeleteRoute ", route), "hook doDeleteRoute 1",
                       "hook doScheduleVerify"}));
      expectMirrored(0);
   }
   sw->inUseRouteHandleIs(InUseRouteHandleKey(), RouteHandle(9));
   sw->doDeleteRoute(RouteHandle(2));  // of the default key's entry, as it is that of no handle
   EXPECT_TRUE(sw->inUseRouteHandle().empty());
}

TEST_F(VelAsyncRoutes, CatchAllRoutesOfBothFamiliesShareOneKey) {
   InUseRouteHandleKey const canonical = inUse(routeKey("0.0.0.0/0", "224.0.0.0/4"), 12);
   RouteHandle const older = allocateRoute(routeKey("0.0.0.0/0", "224.0.0.0/4"), 12);
   journal.take();
   RouteHandle const newer = allocateRoute(routeKey("::/0", "ff00::/8"), 12);
   EXPECT_EQ(journal.take("hook"), Lines{"doAllocateRoute (*, ff00::/8) 12 0 0 3"});  // as it is
   EXPECT_EQ(sw->inUseRouteHandleKey(older), canonical);
   EXPECT_EQ(sw->inUseRouteHandleKey(newer), canonical);
   EXPECT_EQ(sw->inUseRouteHandle(canonical), newer);
   EXPECT_EQ(sw->inUseRouteHandle().size(), 1u);
   allocateRoute(routeKey("0.0.0.0/0", "224.0.0.0/4"), 13);  // another vlan, another key
   EXPECT_EQ(sw->inUseRouteHandle().size(), 2u);

   sw->doDeleteRoute(older);  // takes the newer one's entry along
   EXPECT_TRUE(sw->inUseRouteHandle(canonical).isNull());
   EXPECT_EQ(sw->inUseRouteHandleKey(newer), canonical);
   sw->doDeleteRoute(newer);
   expectMirrored(1);
}

TEST_F(VelAsyncRoutes, ActivationAndBridgeActionOnlyTrace) {
   RouteHandle const handle = allocateRoute();
   journal.take();
   sw->doActivateRoute(handle);
   sw->doSetBridgeAction(handle, true);
   EXPECT_EQ(journal.take(),
             (Lines{"8 AsyncMrouteSwitch::doActivateRoute( 1 )",
                    "7  rh 1 (10.0.0.2, 239.1.1.1) vlan0 vrfId 3",
                    "8 AsyncMrouteSwitch::doSetBridgeAction( 1, bridgeAction 1 )"}));
   expectMirrored(1);
}

TEST_F(VelAsyncRoutes, QuestionsArePassedToThePlatform) {
   EXPECT_TRUE(sw->needIngressProgramming(RouteKeyType::starGroup));
   EXPECT_FALSE(sw->needIngressProgramming(RouteKeyType::softwareOnly));
   Hux::XactPtr const xact = Qor::make<Hux::Xact>();
   EXPECT_EQ(sw->doGetOifSetXactFailureReason(xact), "reason");
   EXPECT_EQ(sw->doGetIngressXactFailureReason(xact), "reason");
   EXPECT_EQ(journal.take(), (Lines{"8 AsyncMrouteSwitch::needIngressProgramming( starGroup )",
                                    "hook needIngressProgramming starGroup",
                                    "8 AsyncMrouteSwitch::needIngressProgramming( softwareOnly )",
                                    "hook needIngressProgramming softwareOnly",
                                    "hook doGetXactFailureReason xact oifSet",
                                    "hook doGetXactFailureReason xact ingress"}));
}

TEST_F(VelAsyncRoutes, TheSwitchsOwnAttributesTellOnlyChanges) {
   struct Watcher final : AsyncMrouteSwitch::Notifiee {
      void onDeleted() override { ++deleted; }
      void onTestKill() override { ++testKill; }
      int deleted = 0, testKill = 0;
   } watcher;
   watcher.notifierIs(sw);
   EXPECT_FALSE(sw->deleted() || sw->testKill());
   EXPECT_EQ(sw->name(), "switch");
   for (bool const v : {true, true, false}) {
      sw->deletedIs(v);
      sw->testKillIs(v);
   }
   EXPECT_EQ(watcher.deleted, 2);
   EXPECT_EQ(watcher.testKill, 2);
}

// ---- The hook class. ----

class VelAsyncHelper : public testing::Test {
 protected:
   void TearDown() override { unsetenv("VEL_NOOP_AGENT"); }
   Qor::Ptr<VelHelper::AsyncMrouteHelper> const bare =
         Qor::make<VelHelper::AsyncMrouteHelper>("bare", nullptr, nullptr);
};

TEST_F(VelAsyncHelper, QueriesHaveDefaults) {
   EXPECT_EQ(bare->name(), "bare");
   EXPECT_TRUE(bare->doCreateMrouteCounter({}, routeKey()));
   EXPECT_TRUE(bare->doDeleteMrouteCounter({}, routeKey()));
   for (unsigned type = 0; type <= static_cast<unsigned>(RouteKeyType::bridged); ++type) {
      EXPECT_FALSE(bare->needFixedOifSet(RouteKeyType(type)));
      EXPECT_TRUE(bare->needIngressProgramming(RouteKeyType(type)));
   }
   EXPECT_TRUE(bare->mcastIdReusable(0xFFFFFFFF));
   EXPECT_TRUE(bare->mcastIdIsValid(0) && bare->mcastIdIsValid(0xFFFFFFFE));
   EXPECT_FALSE(bare->mcastIdIsValid(0xFFFFFFFF));
   for (double const interval : {-0.0, 0.1, 5e-324, Qor::never}) {
      auto const bits = std::bit_cast<Qor::U64>(interval);
      EXPECT_EQ(std::bit_cast<Qor::U64>(bare->doGetAdjustedPollingInterval(interval)), bits);
      EXPECT_EQ(std::bit_cast<Qor::U64>(bare->doGetAdjustedActivityPollInterval(interval)), bits);
   }
   bare->handleMrouteCounterMode({});
   bare->handleWildcardCounter(true);
   bare->doScheduleVerify();
}

// Each required hook, and whether it gives its neutral value.
using Hook = std::pair<char const*, bool (*)(VelHelper::AsyncMrouteHelper&)>;
Hook const requiredHooks[] = {
      {"doAllocateSharableMulticastGroup",
       [](auto& h) {
          return h.doAllocateSharableMulticastGroup({}, nullptr, nullptr, false) == 0;
       }},
      {"doAllocateFixedMulticastGroup",
       [](auto& h) { return h.doAllocateFixedMulticastGroup(nullptr, nullptr, 5) == 0; }},
      {"doUpdateMulticastGroupInPlace",
       [](auto& h) { return h.doUpdateMulticastGroupInPlace(nullptr, 5), true; }},
      {"doGetXactForOifSet", [](auto& h) { return h.doGetXactForOifSet(5) == nullptr; }},
      {"doGetXactFailureReason",
       [](auto& h) {
          return h.doGetXactFailureReason(nullptr, VelHelper::MrouteXactType::ingress).empty();
       }},
      {"doDeleteOifSet", [](auto& h) { return h.doDeleteOifSet(5), true; }},
      {"doAllocateRoute", [](auto& h) { return h.doAllocateRoute({}, {}, false, {}, 1).isNull(); }},
      {"doSetMtableOifSet",
       [](auto& h) { return h.doSetMtableOifSet(RouteHandle(1), 5, nullptr), true; }},
      {"doGetXactForIngress",
       [](auto& h) { return h.doGetXactForIngress(RouteHandle(1)) == nullptr; }},
      {"doDeleteRoute", [](auto& h) { return h.doDeleteRoute(RouteHandle(1)), true; }},
      {"routeLastAccessedTime",
       [](auto& h) { return h.routeLastAccessedTime(RouteHandle(1)) == 0.0; }},
};

TEST_F(VelAsyncHelper, RequiredHooksAreNeutralWithTheVariableWhateverItsValue) {
   for (char const* value : {"", "0", "yes"}) {
      setenv("VEL_NOOP_AGENT", value, 1);
      for (auto const& [name, isNeutral] : requiredHooks)
         EXPECT_TRUE(isNeutral(*bare)) << name;
   }
}

using VelAsyncHelperDeathTest = VelAsyncHelper;

TEST_F(VelAsyncHelperDeathTest, RequiredHooksStopTheProcessWithoutTheVariable) {
   setenv("VEL_NOOP_AGENT", "1", 1);
   EXPECT_TRUE(requiredHooks[0].second(*bare));
   unsetenv("VEL_NOOP_AGENT");  // read at each call
   for (auto const& [name, isNeutral] : requiredHooks) {
      EXPECT_DEATH(isNeutral(*bare),
                   "^This function must be implemented by derived class\n"
                   "Vel/VelCommon:25: void Vel::VelBaseHelper::velAssert\\(Qor::String\\) const: "
                   "Assertion `0' failed\\.\n$")
            << name;
   }
}

TEST_F(VelAsyncHelper, TransactionKindsHaveNamesAndNumbers) {
   using VelHelper::MrouteXactType;
   EXPECT_EQ(static_cast<unsigned>(MrouteXactType::oifSet), 0u);
   EXPECT_EQ(static_cast<unsigned>(MrouteXactType::ingress), 1u);
   for (MrouteXactType const type : {MrouteXactType::oifSet, MrouteXactType::ingress})
      EXPECT_EQ(VelHelper::mrouteXactType(cat(type)), type);
   EXPECT_EQ(cat(MrouteXactType::oifSet, MrouteXactType::ingress, MrouteXactType(7)),
             "oifSetingress7");
   EXPECT_EQ(VelHelper::mrouteXactType("egress"), std::nullopt);
}

TEST_F(VelAsyncHelper, BothCounterCollectionsKeepAndTellTheirKeys) {
   struct Watcher final : VelHelper::AsyncMrouteHelper::Notifiee {
      void onDeletedMrouteCounterKey(MrouteLib::MrouteCounterKey const& k) override {
         told += cat('d', k.vrfId(), ' ');
      }
      void onDeletedMrouteCounterKeyImmediate() override { told += "d* "; }
      void onNoHwCounterMrouteKey(MrouteLib::MrouteCounterKey const& k) override {
         told += cat('n', k.vrfId(), ' ');
      }
      void onNoHwCounterMrouteKeyImmediate() override { told += "n* "; }
      std::string told;
   } watcher;
   watcher.notifierIs(bare);
   auto const key = [](unsigned n) {
      return MrouteLib::MrouteCounterKey(Vel::VrfId(n), routeKey());
   };
   for (unsigned n = 1; n <= 3; ++n) {
      bare->deletedMrouteCounterKeyIs(key(n), true);
      bare->noHwCounterMrouteKeyIs(key(n), true);
   }
   bare->deletedMrouteCounterKeyIs(key(1), true);  // no change
   bare->noHwCounterMrouteKeyIs(key(1), false);
   EXPECT_TRUE(bare->deletedMrouteCounterKey(key(1)));
   EXPECT_FALSE(bare->noHwCounterMrouteKey(key(1)));
   EXPECT_EQ(std::exchange(watcher.told, ""), "d1 n1 d2 n2 d3 n3 n1 ");
   bare->deletedMrouteCounterKeyDel(key(9));  // is not there
   bare->deletedMrouteCounterKeyDel(key(1));
   bare->noHwCounterMrouteKeyDel(key(1));
   auto const d = bare->deletedMrouteCounterKeyDel(bare->deletedMrouteCounterKey().begin());
   auto const n = bare->noHwCounterMrouteKeyDel(bare->noHwCounterMrouteKey().begin());
   EXPECT_EQ(d->first, key(3));
   EXPECT_EQ(n->first, key(3));
   bare->deletedMrouteCounterKeyNotify(key(8));
   bare->noHwCounterMrouteKeyNotify(key(8));
   bare->deletedMrouteCounterKeyDelAll();
   bare->noHwCounterMrouteKeyDelAll();
   EXPECT_EQ(watcher.told, "d1 n1 d2 n2 d8 n8 d* n* ");
   EXPECT_TRUE(bare->deletedMrouteCounterKey().empty() && bare->noHwCounterMrouteKey().empty());
}

}  // namespace
}  // namespace velAsync
