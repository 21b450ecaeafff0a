// Routes of the asynchronous programmer, the keys of its collections, and the hook class.
#include <cstdlib>

#include "VelAsyncTestSupport.h"

namespace velAsync {
namespace {

class VelAsyncRoutes : public VelAsync {
 protected:
   static InUseRouteHandleKey inUse(IpGenRouteKey const& key, unsigned vlan) {
      return {key, VlanIdOrNone(vlan), Vel::VrfId(vrfId)};
   }
};

TEST_F(VelAsyncRoutes, ARouteIsRecordedBothWaysUntilItIsDeleted) {
   sw_->mrouteFailureReasonIs(MrouteLib::MrouteFailureReason::noMulticastId);
   sw_->doAllocateRoute(routeKey(), VlanIdOrNone(12u), true, Wisp::Multicast::Fib::RpaIndex(9),
                        L3::VrfName("default"));
   EXPECT_EQ(failureCode(), 0u);
   RouteHandle const handle = sw_->routeHandle();
   EXPECT_EQ(sw_->inUseRouteHandle(inUse(routeKey(), 12)), handle);
   EXPECT_EQ(sw_->inUseRouteHandleKey(handle), inUse(routeKey(), 12));
   sw_->doActivateRoute(handle);
   sw_->doSetBridgeAction(handle, true);

   RecordPtr const record = Vel::Mroute::asyncMtableOifSetFactory(oifSet(), true, 77, nullptr);
   helper_->groups[77] = record->oifSet();
   sw_->mrouteFailureReasonIs(MrouteLib::MrouteFailureReason::noMulticastId);
   EXPECT_EQ(sw_->doSetMtableOifSet(handle, record, Qor::make<Hux::Xact>()), helper_->lastXact);
   EXPECT_TRUE(record->usedInHw());
   EXPECT_EQ(failureCode(), 0u);

   EXPECT_EQ(sw_->doGetOifSetXactFailureReason(nullptr), "oifSet");
   EXPECT_EQ(sw_->doGetIngressXactFailureReason(nullptr), "ingress");
   sw_->doDeleteRoute(handle);
   EXPECT_TRUE(sw_->inUseRouteHandle().empty() && sw_->inUseRouteHandleKey().empty());
   sw_->doDeleteRoute(handle);  // is not known any more
   expectSaid(R"(
8 AsyncMrouteSwitch::doAllocateRoute( (10.0.0.2, 239.1.1.1), acceptingVlanId 12, bridgeAction 1, rpaId 9, vrf default )
hook doAllocateRoute (10.0.0.2, 239.1.1.1) 12 1 9 3
7 rh 1 -> (10.0.0.2, 239.1.1.1) vlan12 vrfId 3
8 AsyncMrouteSwitch::doActivateRoute( 1 )
7  rh 1 (10.0.0.2, 239.1.1.1) vlan12 vrfId 3
8 AsyncMrouteSwitch::doSetBridgeAction( 1, bridgeAction 1 )
8 AsyncMrouteSwitch::doSetMtableOifSet( 1 )
7  rh 1 -> mt $R oifset $O {et1}
hook doSetMtableOifSet 1 77 blocked
hook doScheduleVerify
hook doGetXactForIngress 1
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
)",
              record->oifSet(), cat(*record));
}

TEST_F(VelAsyncRoutes, WithoutAVrfOrAHandleNothingIsRecorded) {
   RouteHandle const earlier = allocateRoute();
   EXPECT_EQ(allocateRoute(routeKey("10.0.0.3"), 0, "red"), earlier);
   expectLines(
         "8  vrfStatus for vrf: red is not present\n"
         "blip  no vrfStatus for vrf: red");
   EXPECT_EQ(failureCode(), 4096u);
   helper_->routeRoom = 1;
   EXPECT_TRUE(allocateRoute(routeKey("10.0.0.3")).isNull());
   EXPECT_EQ(failureCode(), 1024u);
   EXPECT_EQ(sw_->inUseRouteHandle().size() + sw_->inUseRouteHandleKey().size(), 2u);
   sw_ = Vel::Mroute::asyncMrouteSwitchFactory("blind", nullptr, helper_);
   allocateRoute();
   EXPECT_EQ(failureCode(), 4096u);
}

TEST_F(VelAsyncRoutes, CatchAllRoutesOfBothFamiliesShareOneKey) {
   IpGenRouteKey const v4 = routeKey("0.0.0.0/0", "224.0.0.0/4"), v6 = routeKey("::/0", "ff00::/8");
   RouteHandle const older = allocateRoute(v4, 12);
   RouteHandle const newer = allocateRoute(v6, 12);
   expectLines("hook doAllocateRoute (*, ff00::/8) 12 0 0 3");  // as it was given
   EXPECT_EQ(sw_->inUseRouteHandleKey(newer), inUse(v4, 12));
   EXPECT_EQ(sw_->inUseRouteHandle(inUse(v4, 12)), newer);
   allocateRoute(v4, 13);  // another vlan, another key
   EXPECT_EQ(sw_->inUseRouteHandle().size(), 2u);
   sw_->doDeleteRoute(older);  // takes the newer one's entry along
   EXPECT_TRUE(sw_->inUseRouteHandle(inUse(v4, 12)).isNull());
   EXPECT_EQ(sw_->inUseRouteHandleKey(newer), inUse(v4, 12));
}

// ---- Keys. ----

TEST(VelAsyncKeys, EveryFieldOfARouteKeyCountsInEqualityAndHash) {
   InUseRouteHandleKey const key(routeKey(), VlanIdOrNone(7u), Vel::VrfId(3));
   for (InUseRouteHandleKey const& other :
        {InUseRouteHandleKey(routeKey("10.0.0.3"), VlanIdOrNone(7u), Vel::VrfId(3)),
         InUseRouteHandleKey(routeKey(), VlanIdOrNone(7u + 256), Vel::VrfId(3)),
         InUseRouteHandleKey(routeKey(), VlanIdOrNone(7u), Vel::VrfId(3u + (1u << 24)))}) {
      EXPECT_NE(other, key);
      EXPECT_NE(other.hash(), key.hash());
   }
}

template <class Key>
void expectStrep(Key const& key, std::string const& text) {
   EXPECT_EQ(cat(key), text);
   EXPECT_EQ(Key(text), key);
   for (std::size_t size = 0; size < text.size(); ++size)
      EXPECT_THROW(Key(text.substr(0, size)), Qor::RangeException) << size;
}

TEST(VelAsyncKeys, StringFormsReadBackAndRefuseWhatIsCutShort) {
   expectStrep(ZombieKey(4294967295u, Qor::never),
               "Value('Vel::Mroute::ZombieKey', ** {'multicastId': 4294967295, "
               "'expiryTime': inf})");
   expectStrep(InUseRouteHandleKey(routeKey(), VlanIdOrNone(12u), Vel::VrfId(34)),
               cat("Value('Vel::Mroute::InUseRouteHandleKey', ** {'routeKey': ", routeKey().strep(),
                   ", 'vlan': 12, 'vrfId': 34})"));
}

// ---- The hook class. ----

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

TEST(VelAsyncHelperDeathTest, RequiredHooksStopTheProcessUnlessTheVariableIsPresent) {
   auto const bare = Qor::make<VelHelper::AsyncMrouteHelper>("bare", nullptr, nullptr);
   for (auto const hook : requiredHooks) {
      for (char const* value : {"", "0"}) {
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

}  // namespace
}  // namespace velAsync
