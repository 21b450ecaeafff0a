// The entities of the model: what they tell, when, and in which state they are when they tell it.
#include <map>
#include <random>

#include "Bfd/StatusPeer.h"
#include "Interface/AllIntfStatusDir.h"
#include "IntfVlanId/Table.h"
#include "Routing/Hardware/RouteStatus.h"
#include "Routing/Multicast/Fib/Counter.h"
#include "Routing/Multicast/Fib/Hardware/Status.h"
#include "Routing/Multicast/Fib/VrfConfig.h"
#include "TestSupport.h"

namespace {

using namespace Routing::Multicast::Fib;
using namespace testSupport;
using Bridging::VlanId;
using L3::VrfName;
using Lnet::IntfId;
using Vel::VrfId;

// ---- Hardware status of multicast forwarding. ----

TEST(ModelEntities, TheRouteCountIsRightWheneverAnybodyIsTold) {
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
   EXPECT_EQ(red->routeIs(key(1)), one);  // there already: neither counted nor told
   red->routeIs(key(2));
   blue->routeIs(key(1));
   red->routeDel(key(9));
   red->routeDel(key(1));
   red->routeDel(red->route().begin());
   red->routeIs(key(3));
   red->routeDelAll();
   EXPECT_EQ(watch.counts, (std::vector<Qor::U32>{1, 2, 2, 1, 2, 101}));

   // A VRF that has been let go counts no more, whoever still holds it and whatever becomes of it.
   red->routeIs(key(4));
   EXPECT_EQ(status->routes(), 2u);
   status->vrfStatusDel(VrfName("red"));
   EXPECT_EQ(status->routes(), 1u);
   red->routeIs(key(5));
   EXPECT_EQ(status->routes(), 1u);
   status->vrfStatusDel(status->vrfStatus().begin());  // blue
   EXPECT_EQ(status->routes(), 0u);
   status->vrfStatusIs(VrfName("red"))->routeIs(key(6));
   status->vrfStatusDelAll();
   EXPECT_EQ(status->routes(), 0u);
   auto const orphan = Qor::make<Hardware::Status>()->vrfStatusIs(VrfName("red"));
   orphan->routeIs(key(7));  // and may even outlive the status
}

// ---- Two-way maps. ----

TEST(ModelEntities, InterfacesAndVlansAreInStepWheneverAnybodyIsTold) {
   auto const table = Qor::make<IntfVlanId::Table>();
   struct Watch final : IntfVlanId::Table::Notifiee {
      void check() {
         auto const& t = *notifier();
         ASSERT_EQ(t.intfIdToVlanId().size(), t.vlanIdToIntfId().size());
         for (auto const& [intfId, vlanId] : t.intfIdToVlanId())
            ASSERT_EQ(t.vlanIdToIntfId(vlanId), intfId);
      }
      void onIntfIdToVlanId(IntfId intfId) override {
         intfs[intfId] = notifier()->intfIdToVlanId(intfId).value();
         check();
      }
      void onVlanIdToIntfId(VlanId vlanId) override {
         vlans[vlanId.value()] = notifier()->vlanIdToIntfId(vlanId);
         check();
      }
      std::map<IntfId, unsigned> intfs;  // what the notifications alone have told
      std::map<unsigned, IntfId> vlans;
   } watch;
   watch.notifierIs(table);
   std::map<IntfId, unsigned> model;
   std::mt19937 random(7);
   for (unsigned step = 0; step < 3000; ++step) {
      IntfId const intfId("rtr" + std::to_string(random() % 8));
      unsigned const vlan = 1 + random() % 8;
      if (random() % 4 == 0) {
         table->intfIdToVlanIdDel(intfId);
         model.erase(intfId);
      } else {
         table->intfIdToVlanIdIs(intfId, VlanId(vlan));
         std::erase_if(model, [&](auto const& entry) { return entry.second == vlan; });
         model[intfId] = vlan;
      }
      for (auto const& [told, number] : watch.intfs)
         ASSERT_EQ(number, model.contains(told) ? model[told] : 0u) << "step " << step;
      for (auto const& [number, told] : watch.vlans) {
         ASSERT_EQ(table->vlanIdToIntfId(VlanId(number)), told) << "step " << step;
         ASSERT_TRUE(told.isNull() || model[told] == number) << "step " << step;
      }
   }
   EXPECT_EQ(watch.intfs.size(), 8u);
   EXPECT_EQ(errorText([&] { table->intfIdToVlanIdIs(IntfId(), VlanId(5)); }),
             "IntfVlanId::Table::intfId empty not allowed");
}

TEST(ModelEntities, AHandlerMayDestroyATwoWayTableWhileItTells) {
   using Act = void (*)(IntfVlanId::Table&);
   for (Act const act : {Act([](auto& t) { t.intfIdToVlanIdIs(IntfId("rtr2"), VlanId(5)); }),
                         Act([](auto& t) { t.intfIdToVlanIdDel(IntfId("rtr1")); }),
                         Act([](auto& t) { t.intfIdToVlanIdDelAll(); })}) {
      auto table = Qor::make<IntfVlanId::Table>();
      struct Watch final : IntfVlanId::Table::Notifiee {
         explicit Watch(Qor::Ptr<IntfVlanId::Table>& t) : table_(t) {}
         void onIntfIdToVlanId(IntfId) override { table_ = nullptr; }
         void onIntfIdToVlanIdImmediate() override { table_ = nullptr; }
         Qor::Ptr<IntfVlanId::Table>& table_;
      } watch(table);
      table->intfIdToVlanIdIs(IntfId("rtr1"), VlanId(5));
      watch.notifierIs(table);
      act(*table);
      EXPECT_EQ(watch.notifier(), nullptr);
   }
}

// ---- Directories. ----

TEST(ModelEntities, ADirectoryRefusesNull) {
   EXPECT_EQ(errorText([] { Qor::make<Interface::AllIntfStatusDir>()->intfStatusIs(nullptr); }),
             "null _intfStatus parameter to mutator for Interface::AllIntfStatusDir::intfStatus "
             "not allowed\"");
}

TEST(ModelEntities, ABfdApplicationStaysRegisteredAsLongAsAnyOfItsRegistrations) {
   auto const dir = Qor::make<Bfd::StatusPeer>();
   auto const peers = Qor::make<Bfd::AppStatus>();
   struct Watch final : Bfd::StatusPeer::Notifiee {
      void onRegistration(Qor::U32 number) override {
         auto const r = notifier()->registration(number);
         log.push_back((r.appStatus ? "+" : "-") + std::to_string(number));
      }
      Lines log;
   } watch;
   watch.notifierIs(dir);
   Qor::Ptr<Bfd::StatusPeer const> const seen = dir;
   auto first = Qor::make<Bfd::AppRegistration>("", seen, peers, VrfName("default"));
   auto second = Qor::make<Bfd::AppRegistration>("", seen, peers, VrfName("default"));
   EXPECT_EQ(dir->registrations("", VrfName("default")), 2u);
   first = nullptr;
   EXPECT_EQ(dir->registrations("", VrfName("default")), 1u);
   second = nullptr;
   EXPECT_EQ(watch.log, (Lines{"+1", "+2", "-1", "-2"}));
   EXPECT_EQ(errorText([&] { Qor::make<Bfd::AppRegistration>("", nullptr, peers, VrfName()); }),
             "null _bfdAllPeerStatusDir parameter to mutator for "
             "Bfd::AppRegistration::bfdAllPeerStatusDir not allowed\"");
   EXPECT_EQ(errorText([&] { Qor::make<Bfd::AppRegistration>("", seen, nullptr, VrfName()); }),
             "null _bfdAllPeerStatus parameter to mutator for "
             "Bfd::AppRegistration::bfdAllPeerStatus not allowed\"");
   EXPECT_EQ(watch.log.size(), 4u);
}

// ---- VRFs and configuration. ----

TEST(ModelEntities, AVrfOfTheHardwareKeepsItsNumber) {
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

TEST(ModelEntities, ThePollingIntervalIsRefusedOutsideItsRangeAndThenStaysAsItWas) {
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

TEST(ModelEntities, TheCounterIdleForLongestComesFirst) {
   EXPECT_LT(Counter(1.0, key(3)), Counter(2.0, key(1)));
   EXPECT_LT(Counter(1.0, key(2)), Counter(1.0, key(3)));
   Counter const counter(2.5, key(1));
   EXPECT_EQ(counter.strep(),
             "Value('Routing::Multicast::Fib::Counter', ** {'timeStamp': 2.5, 'key': " +
                   key(1).strep() + "})");
   EXPECT_EQ(Counter(counter.strep()), counter);
}

}  // namespace
