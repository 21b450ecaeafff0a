// Routes of the asynchronous programmer.
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

}  // namespace
}  // namespace velAsync
