// A testbed under the oracle. It passes each operation to a SwitchTestbed and then to the
// oracle. After operations, the oracle looks at the switch before the clock moves.
#pragma once

#include "agent/scenario/SwitchTestbed.h"
#include "agent/soak/SoakOracle.h"

namespace Agent {

class SoakTestbed final : public Testbed {
 public:
   // All three outlive the testbed.
   SoakTestbed(Switch& theSwitch, SwitchTestbed& testbed, SoakOracle& oracle)
         : switch_(theSwitch), testbed_(testbed), oracle_(oracle) {
      switch_.onRerouting([this](Lnet::IntfId intf) { oracle_.rerouting(intf); });
   }
   ~SoakTestbed() override { switch_.onRerouting(nullptr); }

   double nextDeadline() const override { return testbed_.nextDeadline(); }
   void runUntil(double time) override {
      lookIfChanged(time);
      testbed_.runUntil(time);
   }
   void settle() override {
      lookIfChanged(Qor::never);
      testbed_.settle();
      oracle_.look();
   }

   void routeIs(Route const& route) override {
      auto const writes = oracle_.writesIfUnchanged(route);
      testbed_.routeIs(route);
      oracle_.routeIs(route);
      if (writes) {
         testbed_.runUntil(Qor::now());
         oracle_.unchanged(route, *writes);
      }
      changed_ = true;
   }
   void routeDel(L3::VrfName const& vrf, Scenario::RouteKey const& key) override {
      testbed_.routeDel(vrf, key);
      oracle_.routeDel({vrf, key});
      changed_ = true;
   }
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state) override {
      testbed_.linkIs(intf, state);
      oracle_.linkIs(intf, state);
      changed_ = true;
   }
   void bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) override {
      testbed_.bfdIs(peer, state);
      oracle_.bfdIs(peer, state);
      changed_ = true;
   }
   void configIs(Scenario::Config const& config) override {
      testbed_.configIs(config);
      oracle_.configIs(config);
      changed_ = true;
   }
   void counterRouteIs(L3::VrfName const& vrf, Scenario::RouteKey const& key,
                       bool counted) override {
      testbed_.counterRouteIs(vrf, key, counted);
      oracle_.counterRouteIs({vrf, key}, counted);
      changed_ = true;
   }
   void faultIs(Scenario::Fault const& fault) override {
      testbed_.faultIs(fault);
      oracle_.faultIs(fault);
      changed_ = true;
   }
   void restart(Scenario::Restart const& restart) override {
      // Changes that are under way at the crash are compared before they are lost.
      lookIfChanged(Qor::never);
      oracle_.crash(restart);
      testbed_.restart(restart);
      changed_ = true;
   }
   Copies send(Packet const& packet) override;

   RouteFacts route(L3::VrfName const& vrf, Scenario::RouteKey const& key) const override {
      return testbed_.route(vrf, key);
   }
   std::uint64_t value(Scenario::State state) const override { return testbed_.value(state); }
   std::uint64_t value(Scenario::Count count) const override { return testbed_.value(count); }
   std::vector<std::string> forwardingFaults() override { return testbed_.forwardingFaults(); }
   std::vector<std::string> audit() const override { return testbed_.audit(); }
   void show(std::vector<std::string> const&) override {}

 private:
   // Runs the work that is due at the present time, and then looks. That work precedes all later
   // work without a look, too, so the looks do not change the order of events.
   void lookIfChanged(double time) {
      if (!changed_ || time <= Qor::now()) return;
      changed_ = false;
      testbed_.runUntil(Qor::now());
      oracle_.look();
   }

   Switch& switch_;
   SwitchTestbed& testbed_;
   SoakOracle& oracle_;
   bool changed_ = false;  // an operation was called since the last look
};

}  // namespace Agent
