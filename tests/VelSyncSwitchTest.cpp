// The parts of the synchronous programmer that no play of both paths reaches: shared handles, broken
// invariants and the bare hook class.
#include <cstdlib>
#include <functional>

#include "Journal.h"
#include "Qor/Type.h"
#include "TestSupport.h"
#include "Vel/VelSyncMrouteSwitch.h"

namespace {

using namespace testSupport;
using Bridging::VlanIdOrNone;
using MrouteLib::OifSetPtr;
using MrouteLib::RouteHandle;
using Qor::U16;
using Qor::U32;
using Routing::Multicast::Fib::IpGenRouteKey;
using Vel::MrouteSwitch;
using Wisp::Multicast::Fib::RpaIndex;
using RecordPtr = Qor::Ptr<Vel::MtableOifSet>;

// A platform that hands out numbers in their order.
struct Hooks final : VelHelper::MrouteSmHelper {
   Hooks() : MrouteSmHelper("hooks") {}
   void mrouteSwitchInit(U32, bool) override {}
   U32 doAllocateMtableOifSet(U32, U32, OifSetPtr) override { return nextIndex++; }
   void handleFreeMtableOifSet(U32, RecordPtr) override {}
   RouteHandle doAllocateMroute(U32, U16, IpGenRouteKey const&, VlanIdOrNone, bool, U32, bool,
                                U16) override {
      return RouteHandle(nextHandle++);
   }
   void doSetMtableOifSet(U32, U16, RouteHandle, Qor::Ptr<Vel::Route const>, U32) override {}
   bool mtableFull(U32) override { return false; }

   U32 nextIndex = 31, nextHandle = 1;
};

OifSetPtr oifSet(char const* out = "et1") {
   MrouteLib::PortVlanSet set(Routing::Multicast::Fib::RouteKeyType::routed);
   if (*out) set.newPortVlan(pv(out), true);
   return Qor::make<MrouteLib::OifSet>(nullptr, set);
}

class VelSync : public OnVirtualTime {
 protected:
   VelSync() {
      l3_->vrfNameToVrfIdIs("red", Vel::VrfId(7));
      sw_ = Vel::mrouteSwitchFactory("switch", 5, nullptr, l3_, hooks_, nullptr, hwStatus_);
   }
   // As the routing layer does it: the result is taken and cleared.
   RecordPtr allocate(OifSetPtr const& set) {
      sw_->doAllocateMtableOifSet(set);
      auto const record = Qor::ptrCast<Vel::MtableOifSet>(sw_->mtableOifSet());
      sw_->mtableOifSetIs(nullptr);
      return record;
   }
   RouteHandle allocateEntry(IpGenRouteKey const& k, bool boundary, unsigned vlan = 3) {
      sw_->doAllocateRoute(k, VlanIdOrNone(vlan), boundary, nullptr, false, false, RpaIndex(),
                           L3::VrfName("red"));
      return sw_->routeHandle();
   }
   RouteHandle allocateRoute(IpGenRouteKey const& k) { return allocateEntry(k, false); }
   RouteHandle allocateBoundary(IpGenRouteKey const& k, unsigned vlan) {
      return allocateEntry(k, true, vlan);
   }

   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> const hwStatus_ =
         Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   Qor::Ptr<Vel::L3Status> const l3_ = Qor::make<Vel::L3Status>();
   Qor::Ptr<Hooks> const hooks_ = Qor::make<Hooks>();
   Qor::Ptr<MrouteSwitch> sw_;
};

std::string assertion(char const* expression) {
   return cat("Vel/VelSyncMroute[A-Za-z]+\\.cpp:[0-9]+: .*MrouteSwitch::.*: Assertion `",
              expression, "' failed\\.\n");
}

TEST_F(VelSync, AHandleIsOneRoutesButForRangesWhereTheHardwareSharesThem) {
   IpGenRouteKey const range = key("0.0.0.0/0", "239.0.0.0/8");
   hwStatus_->rangeRouteHandleSharedIs(true);
   for (int again = 0; again < 2; ++again) {
      hooks_->nextHandle = 8;
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

using VelSyncDeathTest = VelSync;

TEST_F(VelSyncDeathTest, BrokenInvariantsStopTheProcessWithTheirExpression) {
   RouteHandle const r = allocateRoute(key(1)), b = allocateBoundary(key(2), 3);
   RecordPtr const record = allocate(oifSet());
   EXPECT_DEATH(sw_->doSetMtableOifSet(b, record), assertion("mroute"));
   EXPECT_DEATH(sw_->doSetMtableOifSet(r, nullptr), assertion("oif"));
   EXPECT_DEATH(sw_->doDeleteRoute(RouteHandle(9)), assertion("bnd"));
   hooks_->nextHandle = 1;
   EXPECT_DEATH(allocateRoute(key("0.0.0.0/0", "239.0.0.0/8")), assertion("!route\\( handle \\)"));
   hwStatus_->rangeRouteHandleSharedIs(true);
   EXPECT_DEATH(allocateRoute(key(3)), assertion("!route\\( handle \\)"));
   hooks_->nextHandle = 2;
   EXPECT_DEATH(allocateBoundary(key(3), 3), assertion("!boundary\\( handle \\)"));
   l3_->vrfNameToVrfIdIs("red", Vel::VrfId(0x10000));
   EXPECT_DEATH(allocateRoute(key(3)), assertion("vrfId <= 0xFFFF"));
   hooks_->nextIndex = 31;
   EXPECT_DEATH(allocate(oifSet()), assertion("oifSetIndexColl\\( oifSetIndex \\) == false"));
   hooks_->nextIndex = MrouteSwitch::invalidOifSetIndex();
   EXPECT_DEATH(allocate(oifSet("")), assertion("oifSetIndex != invalidOifSetIndex\\(\\)"));
}

// ---- The hook class ----

struct Bare final : VelHelper::MrouteSmHelper {
   Bare() : MrouteSmHelper("bare") {}
};

// All indexes and handles are 0.
TEST_F(VelSync, OnTheBareHookClassTheNewestHasTheIndexAndTheHandle) {
   setenv("VEL_NOOP_AGENT", "", 1);
   hwStatus_->rangeRouteHandleSharedIs(true);  // makes no difference
   sw_ = Vel::mrouteSwitchFactory("bare", 5, nullptr, l3_, Qor::make<Bare>(), nullptr, hwStatus_);
   std::vector<RouteHandle> handles;
   std::vector<OifSetPtr> const sets{oifSet(), oifSet(), oifSet()};
   std::vector<IpGenRouteKey> const keys{key(1), key("0.0.0.0/0", "239.0.0.0/8"), key(3)};
   for (unsigned n = 0; n < 3; ++n) {
      RecordPtr const record = allocate(sets[n]);
      handles.push_back(allocateRoute(keys[n]));
      sw_->doSetMtableOifSet(handles.back(), record);
      EXPECT_EQ(sw_->route(handles.back())->mtableOifSet(), record);
      EXPECT_EQ(sw_->routeKeyToHandle().begin()->first,
                Vel::RouteKeyVlanId(keys[n], VlanIdOrNone(3u)));
      handles.push_back(allocateBoundary(keys[n], 3 + n % 2));
      EXPECT_EQ(sw_->boundary(handles.back())->key(), keys[n]);
   }
   EXPECT_EQ(sw_->route().size() + sw_->routeKeyToHandle().size() + sw_->boundary().size(), 3u);
   EXPECT_EQ(sw_->zombieOifSet().size(), 1u);  // of the two that were replaced
   RecordPtr const older = allocate(sets[0]);
   for (RouteHandle const handle : handles) {
      sw_->doDeleteRoute(handle);
      sw_->doSetMtableOifSet(handle, older);
   }
   EXPECT_EQ(l3_->multicastReviewPending(), 9u);
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
                "^The hook doAllocateMtableOifSet of \"bare\" is required and not overridden\n"
                "This function must be implemented by derived class\n");
   EXPECT_EQ(bare->mrouteHitBitCacheRefresh(1), Bare::hitBitCacheRefreshed);
}

}  // namespace
