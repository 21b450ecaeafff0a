// Routes of the asynchronous programmer, and the hook class's own behaviour.
#include <bit>
#include <cstdlib>

#include "VelAsyncRecorder.h"

namespace velAsync {
namespace {

class VelAsyncRoutes : public VelAsync {
 protected:
   static InUseRouteHandleKey inUse(IpGenRouteKey const& key, unsigned vlan) {
      return {key, Bridging::VlanIdOrNone(vlan), Vel::VrfId(vrfId)};
   }
};

TEST_F(VelAsyncRoutes, ARouteIsRecordedBothWaysUntilItIsDeleted) {
   sw_->mrouteFailureReasonIs(MrouteLib::MrouteFailureReason::noMulticastId);
   sw_->doAllocateRoute(routeKey(), Bridging::VlanIdOrNone(12u), true,
                        Wisp::Multicast::Fib::RpaIndex(9), L3::VrfName("default"));
   EXPECT_EQ(sw_->mrouteFailureReason(), MrouteLib::MrouteFailureReason::none);
   EXPECT_EQ(sw_->routeHandle(), RouteHandle(1));
   EXPECT_EQ(sw_->inUseRouteHandle(inUse(routeKey(), 12)), RouteHandle(1));
   EXPECT_EQ(sw_->inUseRouteHandleKey(RouteHandle(1)), inUse(routeKey(), 12));
   EXPECT_EQ(sw_->inUseRouteHandleKey(RouteHandle(2)), InUseRouteHandleKey());
   sw_->doActivateRoute(RouteHandle(1));
   sw_->doSetBridgeAction(RouteHandle(1), true);
   sw_->doDeleteRoute(RouteHandle(1));
   EXPECT_TRUE(sw_->inUseRouteHandle().empty() && sw_->inUseRouteHandleKey().empty());
   sw_->doDeleteRoute(RouteHandle(1));  // is not known any more
   expectSaid(R"(
8 AsyncMrouteSwitch::doAllocateRoute( (10.0.0.2, 239.1.1.1), acceptingVlanId 12, bridgeAction 1, rpaId 9, vrf default )
hook doAllocateRoute (10.0.0.2, 239.1.1.1) 12 1 9 3
7 rh 1 -> (10.0.0.2, 239.1.1.1) vlan12 vrfId 3
8 AsyncMrouteSwitch::doActivateRoute( 1 )
7  rh 1 (10.0.0.2, 239.1.1.1) vlan12 vrfId 3
8 AsyncMrouteSwitch::doSetBridgeAction( 1, bridgeAction 1 )
8 AsyncMrouteSwitch::doDeleteRoute( 1 )
7  rh 1 (10.0.0.2, 239.1.1.1) vlan12 vrfId 3
blip AsyncMrouteSwitch::doDeleteRoute (10.0.0.2, 239.1.1.1)
hook doDeleteRoute 1
hook doScheduleVerify
8 AsyncMrouteSwitch::doDeleteRoute( 1 )
7  rh 1 ?
blip AsyncMrouteSwitch::doDeleteRoute (invalid)
hook doDeleteRoute 1
hook doScheduleVerify
)");
   sw_->inUseRouteHandleIs(InUseRouteHandleKey(), RouteHandle(9));
   sw_->doDeleteRoute(RouteHandle(2));  // has the default key, as any unknown handle
   EXPECT_TRUE(sw_->inUseRouteHandle().empty());
}

TEST_F(VelAsyncRoutes, WithoutAVrfOrAHandleNothingIsRecorded) {
   allocateRoute();
   journal_.take();
   sw_->doAllocateRoute(routeKey("10.0.0.3"), {}, false, {}, L3::VrfName("red"));
   expectSaid(R"(
8 AsyncMrouteSwitch::doAllocateRoute( (10.0.0.3, 239.1.1.1), acceptingVlanId 0, bridgeAction 0, rpaId 0, vrf red )
8  vrfStatus for vrf: red is not present
blip  no vrfStatus for vrf: red
)");
   EXPECT_EQ(static_cast<Qor::U32>(sw_->mrouteFailureReason()), 4096u);
   EXPECT_EQ(sw_->routeHandle(), RouteHandle(1));  // the earlier one stands
   helper_->routeRoom = 1;
   EXPECT_TRUE(allocateRoute(routeKey("10.0.0.3")).isNull());
   EXPECT_EQ(static_cast<Qor::U32>(sw_->mrouteFailureReason()), 1024u);
   EXPECT_EQ(sw_->inUseRouteHandle().size() + sw_->inUseRouteHandleKey().size(), 2u);
   auto const blind = Vel::Mroute::asyncMrouteSwitchFactory("blind", nullptr, helper_);
   blind->doAllocateRoute(routeKey(), {}, false, {}, L3::VrfName("default"));
   EXPECT_EQ(static_cast<Qor::U32>(blind->mrouteFailureReason()), 4096u);
}

TEST_F(VelAsyncRoutes, PointingARouteAtARecordUsesItInHardwareAtOnce) {
   RouteHandle const handle = allocateRoute();
   RecordPtr const record = allocate(oifSet());
   sw_->mrouteFailureReasonIs(MrouteLib::MrouteFailureReason::noMulticastId);
   journal_.take();
   Hux::XactPtr const xact = sw_->doSetMtableOifSet(handle, record, Qor::make<Hux::Xact>());
   expectSaid(R"(
8 AsyncMrouteSwitch::doSetMtableOifSet( 1 )
7  rh 1 -> mt $R oifset $O {et1}
hook doSetMtableOifSet 1 100 blocked
hook doScheduleVerify
hook doGetXactForIngress 1
)",
              record->oifSet(), cat(*record));
   EXPECT_EQ(xact, helper_->xactOf.at("route 1"));
   EXPECT_TRUE(xact->pending() && record->usedInHw());
   EXPECT_EQ(sw_->mrouteFailureReason(), MrouteLib::MrouteFailureReason::none);
   sw_->doDeleteRoute(handle);
}

TEST_F(VelAsyncRoutes, CatchAllRoutesOfBothFamiliesShareOneKey) {
   IpGenRouteKey const v4 = routeKey("0.0.0.0/0", "224.0.0.0/4"), v6 = routeKey("::/0", "ff00::/8");
   RouteHandle const older = allocateRoute(v4, 12);
   journal_.take();
   RouteHandle const newer = allocateRoute(v6, 12);
   EXPECT_EQ(journal_.hooks(), "doAllocateRoute (*, ff00::/8) 12 0 0 3; ");  // as it was given
   EXPECT_EQ(sw_->inUseRouteHandleKey(older), inUse(v4, 12));
   EXPECT_EQ(sw_->inUseRouteHandleKey(newer), inUse(v4, 12));
   EXPECT_EQ(sw_->inUseRouteHandle(inUse(v4, 12)), newer);
   EXPECT_EQ(sw_->inUseRouteHandle().size(), 1u);
   allocateRoute(v4, 13);  // another vlan, another key
   EXPECT_EQ(sw_->inUseRouteHandle().size(), 2u);

   sw_->doDeleteRoute(older);  // takes the newer one's entry along
   EXPECT_TRUE(sw_->inUseRouteHandle(inUse(v4, 12)).isNull());
   EXPECT_EQ(sw_->inUseRouteHandleKey(newer), inUse(v4, 12));
}

TEST_F(VelAsyncRoutes, QuestionsArePassedToThePlatform) {
   EXPECT_FALSE(sw_->needIngressProgramming(RouteKeyType::softwareOnly));
   Hux::XactPtr const xact = Qor::make<Hux::Xact>();
   EXPECT_EQ(sw_->doGetOifSetXactFailureReason(xact), "reason");
   EXPECT_EQ(sw_->doGetIngressXactFailureReason(xact), "reason");
   expectSaid(R"(
8 AsyncMrouteSwitch::needIngressProgramming( softwareOnly )
hook needIngressProgramming softwareOnly
hook doGetXactFailureReason xact oifSet
hook doGetXactFailureReason xact ingress
)");
}

// ---- The hook class. ----

class VelAsyncHelper : public testing::Test {
 protected:
   void TearDown() override { unsetenv("VEL_NOOP_AGENT"); }
   Qor::Ptr<VelHelper::AsyncMrouteHelper> const bare =
         Qor::make<VelHelper::AsyncMrouteHelper>("bare", nullptr, nullptr);
};

TEST_F(VelAsyncHelper, QueriesHaveDefaults) {
   EXPECT_TRUE(bare->doCreateMrouteCounter({}, {}) && bare->doDeleteMrouteCounter({}, {}));
   EXPECT_FALSE(bare->needFixedOifSet(RouteKeyType::bridged));
   EXPECT_TRUE(bare->needIngressProgramming(RouteKeyType::softwareOnly));
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

// The required hooks; each returns whether it gave its neutral value.
bool (*const requiredHooks[])(VelHelper::AsyncMrouteHelper&) = {
      [](auto& h) { return h.doAllocateSharableMulticastGroup({}, nullptr, nullptr, false) == 0; },
      [](auto& h) { return h.doAllocateFixedMulticastGroup(nullptr, nullptr, 5) == 0; },
      [](auto& h) { return h.doUpdateMulticastGroupInPlace(nullptr, 5), true; },
      [](auto& h) { return h.doGetXactForOifSet(5) == nullptr; },
      [](auto& h) { return h.doGetXactFailureReason(nullptr, {}).empty(); },
      [](auto& h) { return h.doDeleteOifSet(5), true; },
      [](auto& h) { return h.doAllocateRoute({}, {}, false, {}, 1).isNull(); },
      [](auto& h) { return h.doSetMtableOifSet(RouteHandle(1), 5, nullptr), true; },
      [](auto& h) { return h.doGetXactForIngress(RouteHandle(1)) == nullptr; },
      [](auto& h) { return h.doDeleteRoute(RouteHandle(1)), true; },
      [](auto& h) { return h.routeLastAccessedTime(RouteHandle(1)) == 0.0; },
};

using VelAsyncHelperDeathTest = VelAsyncHelper;

TEST_F(VelAsyncHelperDeathTest, RequiredHooksStopTheProcessUnlessTheVariableIsPresent) {
   for (auto const hook : requiredHooks) {
      for (char const* value : {"", "0", "yes"}) {
         setenv("VEL_NOOP_AGENT", value, 1);
         EXPECT_TRUE(hook(*bare));
      }
      unsetenv("VEL_NOOP_AGENT");  // read at each call
      EXPECT_DEATH(hook(*bare),
                   "^This function must be implemented by derived class\n"
                   "Vel/VelCommon:25: void Vel::VelBaseHelper::velAssert\\(Qor::String\\) const: "
                   "Assertion `0' failed\\.\n$");
   }
}

TEST_F(VelAsyncHelper, TransactionKindsHaveNamesAndNumbers) {
   using Kind = VelHelper::MrouteXactType;
   EXPECT_EQ(cat(Kind(0), ' ', Kind(1), ' ', Kind(7)), "oifSet ingress 7");
   EXPECT_EQ(VelHelper::mrouteXactType("oifSet"), Kind::oifSet);
   EXPECT_EQ(VelHelper::mrouteXactType("ingress"), Kind::ingress);
   EXPECT_EQ(VelHelper::mrouteXactType("egress"), std::nullopt);
}

TEST_F(VelAsyncHelper, BothCounterCollectionsKeepAndTellTheirKeys) {
   using Key = MrouteLib::MrouteCounterKey;
   struct Watcher final : VelHelper::AsyncMrouteHelper::Notifiee {
      void onDeletedMrouteCounterKey(Key const& k) override { told += cat('d', k.vrfId(), ' '); }
      void onDeletedMrouteCounterKeyImmediate() override { told += "d* "; }
      void onNoHwCounterMrouteKey(Key const& k) override { told += cat('n', k.vrfId(), ' '); }
      void onNoHwCounterMrouteKeyImmediate() override { told += "n* "; }
      std::string told;
   } watcher;
   watcher.notifierIs(bare);
   auto const key = [](unsigned n) { return Key(Vel::VrfId(n), routeKey()); };
   for (unsigned const n : {1u, 2u, 3u, 1u}) {  // the last changes nothing
      bare->deletedMrouteCounterKeyIs(key(n), true);
      bare->noHwCounterMrouteKeyIs(key(n), n != 2);
   }
   EXPECT_TRUE(bare->deletedMrouteCounterKey(key(2)) && bare->noHwCounterMrouteKey(key(1)));
   EXPECT_FALSE(bare->deletedMrouteCounterKey(key(9)) || bare->noHwCounterMrouteKey(key(2)));
   EXPECT_EQ(std::exchange(watcher.told, ""), "d1 n1 d2 n2 d3 n3 ");
   bare->deletedMrouteCounterKeyDel(key(1));
   bare->noHwCounterMrouteKeyDel(key(1));
   auto const d = bare->deletedMrouteCounterKeyDel(bare->deletedMrouteCounterKey().begin());
   auto const n = bare->noHwCounterMrouteKeyDel(bare->noHwCounterMrouteKey().begin());
   EXPECT_TRUE(d->first == key(3) && n->first == key(3));
   bare->deletedMrouteCounterKeyNotify(key(8));
   bare->noHwCounterMrouteKeyNotify(key(8));
   bare->deletedMrouteCounterKeyDelAll();
   bare->noHwCounterMrouteKeyDelAll();
   EXPECT_EQ(watcher.told, "d1 n1 d2 n2 d8 n8 d* n* ");
}

}  // namespace
}  // namespace velAsync
