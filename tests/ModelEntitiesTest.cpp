// The entities of the model: their notifications, and the state that a notifiee finds.
#include <algorithm>

#include "IntfVlanId/Table.h"
#include "MrouteLib/OifSet.h"
#include "Routing/Hardware/RouteStatus.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "TestSupport.h"
#include "Vel/L3Status.h"

namespace {

using namespace Routing::Multicast::Fib;
using namespace testSupport;
using Bridging::VlanId;
using L3::VrfName;
using Lnet::IntfId;
using Vel::VrfId;

// ---- Hardware status of multicast forwarding. ----

TEST(ModelEntities, RouteCountIncludesTheNotifiedChange) {
   auto const status = Qor::make<Hardware::Status>();
   struct Watch final : Hardware::VrfStatus::Notifiee {
      explicit Watch(Hardware::Status const* s) : status(s) {}
      void onRoute(IpGenRouteKey const&) override { counts.push_back(status->routes()); }
      void onRouteImmediate() override { counts.push_back(100 + status->routes()); }
      Hardware::Status const* status;
      std::vector<Qor::U32> counts;
   } watch(status.get());
   auto const red = status->vrfStatusIs(VrfName("red"));
   auto const blue = status->vrfStatusIs(VrfName("blue"));
   EXPECT_EQ(status->vrfStatusIs(VrfName("red")), red);
   watch.notifierIs(red);
   auto const one = red->routeIs(key(1));
   EXPECT_EQ(red->routeIs(key(1)), one);  // present: neither counted nor notified
   red->routeIs(key(2));
   blue->routeIs(key(1));
   red->routeDel(key(9));
   red->routeDel(key(1));
   red->routeDel(red->route().begin());
   red->routeIs(key(3));
   red->routeDelAll();
   EXPECT_EQ(watch.counts, (std::vector<Qor::U32>{1, 2, 2, 1, 2, 101}));

   // The routes of a removed VRF are not counted, though a holder of the VRF adds more.
   red->routeIs(key(4));
   EXPECT_EQ(status->routes(), 2u);
   status->vrfStatusDel(VrfName("red"));
   EXPECT_EQ(status->routes(), 1u);
   red->routeIs(key(5));
   status->vrfStatusDel(status->vrfStatus().begin());  // blue
   EXPECT_EQ(status->routes(), 0u);
   auto const orphan = Qor::make<Hardware::Status>()->vrfStatusIs(VrfName("red"));
   orphan->routeIs(key(7));  // the VRF outlives the status
}

// ---- Two-way maps. ----

TEST(ModelEntities, InterfacesAndVlansAgreeInEachNotification) {
   auto const table = Qor::make<IntfVlanId::Table>();
   struct Watch final : IntfVlanId::Table::Notifiee {
      void check() {
         auto const& t = *notifier();
         ASSERT_EQ(t.intfIdToVlanId().size(), t.vlanIdToIntfId().size());
         for (auto const& [intfId, vlanId] : t.intfIdToVlanId())
            ASSERT_EQ(t.vlanIdToIntfId(vlanId), intfId);
      }
      void onIntfIdToVlanId(IntfId intfId) override {
         told.push_back(intfId.name() + ' ' +
                        std::to_string(notifier()->intfIdToVlanId(intfId).value()));
         check();
      }
      void onVlanIdToIntfId(VlanId vlanId) override {
         told.push_back(std::to_string(vlanId.value()) + ' ' +
                        notifier()->vlanIdToIntfId(vlanId).name());
         check();
      }
      Lines told;
   } watch;
   watch.notifierIs(table);
   table->intfIdToVlanIdIs(IntfId("rtr1"), VlanId(5));
   table->intfIdToVlanIdIs(IntfId("rtr2"), VlanId(6));
   watch.told.clear();
   table->intfIdToVlanIdIs(IntfId("rtr1"), VlanId(6));  // rtr2 loses vlan 6, vlan 5 its interface
   std::sort(watch.told.begin(), watch.told.end());
   EXPECT_EQ(watch.told, (Lines{"5 ", "6 rtr1", "rtr1 6", "rtr2 0"}));
   EXPECT_EQ(table->intfIdToVlanId().size(), 1u);
   EXPECT_EQ(errorText([&] { table->intfIdToVlanIdIs(IntfId(), VlanId(5)); }),
             "IntfVlanId::Table::intfId empty not allowed");
}

TEST(ModelEntities, ARetiredOifSetLeavesItsPlaceToANewOne) {
   auto const tables = Qor::make<MrouteLib::MrouteTableColl>();
   MrouteLib::PortVlanSet const value(RouteKeyType::routed);
   auto retired = tables->newOifSet(value);
   EXPECT_EQ(tables->newOifSet(value), retired);
   tables->oifSetRetire(*retired);
   auto newer = tables->newOifSet(value);
   EXPECT_NE(newer, retired);
   retired = nullptr;
   EXPECT_EQ(tables->oifSet(value), newer);
   newer = nullptr;
   EXPECT_EQ(tables->oifSet(value), nullptr);
}

// ---- VRFs and configuration. ----

TEST(ModelEntities, APresentVrfOfTheHardwareKeepsItsNumber) {
   auto const status = Qor::make<Routing::Hardware::RouteStatus>();
   auto const red = status->newVrfStatus(VrfName("red"), VrfId(3));
   EXPECT_EQ(status->newVrfStatus(VrfName("red"), VrfId(3)), red);
   EXPECT_EQ(errorText<Qor::ReinstantiationException>(
                   [&] { status->newVrfStatus(VrfName("red"), VrfId(4)); }),
             "Reinstantiating the pointer interface where constructor parameter attribute _vrfId "
             "has a different value of 3");
   status->vrfStatusDel(VrfName("red"));
   EXPECT_EQ(status->newVrfStatus(VrfName("red"), VrfId(4))->vrfId(), VrfId(4));
}

TEST(ModelEntities, APollingIntervalOutOfRangeIsAnErrorAndChangesNothing) {
   auto const config = Qor::make<VrfConfig>();
   EXPECT_EQ(config->activityPollingInterval(), 60);
   for (Qor::U64 const bad : {Qor::U64{0}, Qor::U64{256}, Qor::U64{0x100000001}}) {
      EXPECT_EQ(errorText([&] { config->activityPollingIntervalIs(bad); }),
                "VrfConfig::activityPollingInterval < 1 or > 255 not allowed")
            << bad;
   }
   EXPECT_EQ(config->activityPollingInterval(), 60);
   for (Qor::U8 const good : {1, 255}) {
      config->activityPollingIntervalIs(good);
      EXPECT_EQ(config->activityPollingInterval(), good);
   }
}

}  // namespace
