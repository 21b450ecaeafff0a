#include <gtest/gtest.h>

#include "Journal.h"
#include "TestSupport.h"
#include "Vel/VelMrouteRecoverySm.h"

namespace {

using namespace testSupport;
using Bridging::VlanIdOrNone;
using L3::VrfName;
using Vel::VrfId;

// VRF 1 is "red", 2 has a name that no VRF may have; et1 has the vlan 1001.
struct Recovery : testing::Test {
   Recovery() {
      l3Status->vrfNameToVrfIdIs("red", VrfId(1));
      l3Status->vrfNameToVrfIdIs(std::string(101, 'v'), VrfId(2));
      table->intfIdToVlanIdIs(Lnet::IntfId("et1"), Bridging::VlanId(1001u));
   }
   Lnet::IntfId accepting(unsigned n) const {
      return hwStatus->vrfStatus(VrfName("red"))->route(key(n))->acceptingIntfId();
   }

   Qor::Ptr<Vel::L3Status> l3Status = Qor::make<Vel::L3Status>();
   Qor::Ptr<IntfVlanId::Table> table = Qor::make<IntfVlanId::Table>();
   Qor::Ptr<Routing::Multicast::Fib::VrfEnabledStatus> enabled =
         Qor::make<Routing::Multicast::Fib::VrfEnabledStatus>();
   Qor::Ptr<Routing::Multicast::Fib::Hardware::Status> hwStatus =
         Qor::make<Routing::Multicast::Fib::Hardware::Status>();
   Qor::Ptr<Vel::Mroute::RecoverySm> recovery =
         Vel::Mroute::recoverySmFactory(l3Status, table, enabled, hwStatus);
};

TEST_F(Recovery, EnabledVrfsGetAStatusOnceAndKeepIt) {
   enabled->vrfIs(VrfName("blue"));
   enabled->vrfIs(VrfName("red"));
   recovery->doAddMfibHwStatusEntry(VrfId(1), key(1), VlanIdOrNone(1001u));
   recovery->doAddMfibHwVrfStatus();
   recovery->doAddMfibHwVrfStatus();
   EXPECT_EQ(hwStatus->vrfStatus().size(), 2u);
   EXPECT_EQ(hwStatus->routes(), 1u);
}

TEST_F(Recovery, ARouteGetsTheInterfaceOfItsVlan) {
   recovery->doAddMfibHwStatusEntry(VrfId(1), key(1), VlanIdOrNone(1001u));
   recovery->doAddMfibHwStatusEntry(VrfId(1), key(2), VlanIdOrNone());
   recovery->doAddMfibHwStatusEntry(VrfId(1), key(3), VlanIdOrNone(7u));
   EXPECT_EQ(accepting(1), Lnet::IntfId("et1"));
   EXPECT_EQ(accepting(2), Lnet::IntfId());
   EXPECT_EQ(accepting(3), Lnet::IntfId());
   // An existing entry gets the new interface and keeps its times.
   auto const route = hwStatus->vrfStatus(VrfName("red"))->route(key(2));
   route->lastPollTimeIs(5);
   recovery->doAddMfibHwStatusEntry(VrfId(1), key(2), VlanIdOrNone(1001u));
   EXPECT_EQ(route->acceptingIntfId(), Lnet::IntfId("et1"));
   EXPECT_EQ(route->lastPollTime(), 5);
}

TEST_F(Recovery, UnknownVrfsAreTracedAndLongNamesRefused) {
   Journal journal("VelMrouteRecoverySm", "VelMrouteRecovery");
   recovery->doAddMfibHwStatusEntry(VrfId(9), key(1), VlanIdOrNone(1001u));
   EXPECT_EQ(journal.text(),
             "\n8 doAddMfibHwStatusEntry( 9, (10.0.0.1, 239.0.0.1), 1001 )\n"
             "7 doAddMfibHwStatusEntry( 9, (10.0.0.1, 239.0.0.1), 1001 ), Vrf does "
             "not exist\n");
   EXPECT_EQ(errorText([&] { recovery->doAddMfibHwStatusEntry(VrfId(2), key(1), {}); }),
             "VrfName::bytes > 100 not allowed");
   EXPECT_TRUE(hwStatus->vrfStatus().empty());
   journal.take();
   recovery->doAddMfibHwStatusEntry(VrfId(1), key(1), {});
   EXPECT_EQ(journal.take().back(),
             "7 doAddMfibHwStatusEntry( 1, (10.0.0.1, 239.0.0.1), 0 ), Added route to VRF red");
}

}  // namespace
