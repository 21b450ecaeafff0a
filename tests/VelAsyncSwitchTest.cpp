// The parts of the asynchronous programmer that no play of both paths reaches: operations that only
// trace, and broken invariants.
#include "Journal.h"
#include "TestSupport.h"
#include "Vel/VelAsyncMrouteSwitch.h"

namespace {

using namespace testSupport;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Routing::Multicast::Fib::RouteKeyType;
using Vel::Mroute::AsyncMrouteSwitch;
using Vel::Mroute::AsyncMtableOifSet;

// A platform that answers every request with 1, or without a transaction.
struct Hooks final : VelHelper::AsyncMrouteHelper {
   Hooks() : AsyncMrouteHelper("hooks", nullptr, nullptr) {}
   Qor::U32 doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const&, OifSetPtr,
                                             Hux::XactPtr, bool) override {
      return 1;
   }
   Hux::XactPtr doGetXactForOifSet(Qor::U32) override { return xact; }
   Hux::XactPtr doGetXactForIngress(RouteHandle) override { return xact; }
   Qor::String8 doGetXactFailureReason(Hux::XactPtr, VelHelper::MrouteXactType type) override {
      return cat(type);
   }
   RouteHandle doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const&,
                               Bridging::VlanIdOrNone, bool, Wisp::Multicast::Fib::RpaIndex,
                               Qor::U32) override {
      return RouteHandle(1);
   }
   void doSetMtableOifSet(RouteHandle, Qor::U32, Hux::XactPtr) override {}
   void doDeleteOifSet(Qor::U32) override {}
   void doDeleteRoute(RouteHandle) override {}
   bool needFixedOifSet(RouteKeyType) override { return false; }
   bool mcastIdReusable(Qor::U32) override { return true; }
   void doScheduleVerify() override {}

   Hux::XactPtr xact = Qor::make<Hux::Xact>();
};

OifSetPtr oifSet() {
   return Qor::make<MrouteLib::OifSet>(nullptr, MrouteLib::PortVlanSet(RouteKeyType::routed));
}

class VelAsyncSwitch : public OnVirtualTime {
 protected:
   VelAsyncSwitch() {
      vrfs_->newVrfStatus(L3::VrfName("default"), Vel::VrfId(3));
      sw_ = Vel::Mroute::asyncMrouteSwitchFactory("switch", vrfs_, hooks_);
   }
   Hux::XactPtr allocate() { return sw_->doAllocateMtableOifSet({}, oifSet(), nullptr, 0, false); }
   void allocateRoute() { sw_->doAllocateRoute(key(1), {}, false, {}, L3::VrfName("default")); }

   Qor::Ptr<Routing::Hardware::RouteStatus> const vrfs_ =
         Qor::make<Routing::Hardware::RouteStatus>();
   Qor::Ptr<Hooks> const hooks_ = Qor::make<Hooks>();
   Qor::Ptr<AsyncMrouteSwitch> sw_;
};

TEST_F(VelAsyncSwitch, OperationsThatChangeNothingAreTraced) {
   allocateRoute();
   Journal journal("VelAsyncMrouteSm");
   sw_->doActivateRoute(RouteHandle(1));
   sw_->doSetBridgeAction(RouteHandle(1), true);
   EXPECT_EQ(journal.text(), R"(
8 AsyncMrouteSwitch::doActivateRoute( 1 )
7  rh 1 (10.0.0.1, 239.0.0.1) vlan0 vrfId 3
8 AsyncMrouteSwitch::doSetBridgeAction( 1, bridgeAction 1 )
)");
   EXPECT_EQ(sw_->doGetOifSetXactFailureReason(nullptr), "oifSet");
   EXPECT_EQ(sw_->doGetIngressXactFailureReason(nullptr), "ingress");
   allocate();
   EXPECT_EQ(sw_->doGetMulticastId(sw_->mtableOifSet()), 1u);
   EXPECT_EQ(sw_->doGetOifSet(sw_->mtableOifSet()), sw_->mtableOifSet()->oifSet());
   sw_ = Vel::Mroute::asyncMrouteSwitchFactory("blind", nullptr, hooks_);
   allocateRoute();
   EXPECT_EQ(sw_->mrouteFailureReason(), MrouteLib::MrouteFailureReason::noVrfStatus);
}

using VelAsyncSwitchDeathTest = VelAsyncSwitch;

TEST_F(VelAsyncSwitchDeathTest, BrokenInvariantsStopTheProcessWithTheirExpression) {
   auto const assertion = [](char const* expression) {
      return cat("Vel/VelAsyncMroute[A-Za-z]+\\.cpp:[0-9]+: .*AsyncMrouteSwitch::.*: Assertion `",
                 expression, "' failed\\.\n");
   };
   EXPECT_DEATH(sw_->doSetMtableOifSet(RouteHandle(1), nullptr, nullptr), assertion("oif"));
   allocate();
   auto const record = Qor::ptrCast<AsyncMtableOifSet>(sw_->mtableOifSet());
   record->skipDeleteIs(true);  // of a type that is not fixed
   EXPECT_DEATH(sw_->handleFreeMtableOifSet(record),
                assertion("mrouteHelper\\(\\)->needFixedOifSet\\( oifSet->portVlanSet\\(\\)"
                          "\\.type\\(\\) \\)"));
   record->skipDeleteIs(false);
   hooks_->xact = nullptr;
   EXPECT_DEATH(allocate(), assertion("xact"));
}

}  // namespace
