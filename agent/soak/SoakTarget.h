// A simulated switch that is watched: a scenario's target that does what SimulatedTarget does, tells
// the checker of it, and has the checker look whenever the clock is about to move.
#pragma once

#include "agent/scenario/SimulatedTarget.h"
#include "agent/soak/SoakChecker.h"

namespace Agent {

class SoakTarget final : public ScenarioTarget {
 public:
   // All three outlive the target.
   SoakTarget(SimulatedSwitch& simulated, SimulatedTarget& target, SoakChecker& checker)
         : simulated_(simulated), target_(target), checker_(checker) {
      simulated_.onRerouting([this](Lnet::IntfId intf) { checker_.rerouting(intf); });
   }
   ~SoakTarget() { simulated_.onRerouting(nullptr); }

   double nextDeadline() const override { return target_.nextDeadline(); }
   void runUntil(double time) override {
      lookIfChanged(time);
      target_.runUntil(time);
   }
   void settle() override {
      lookIfChanged(Qor::never);
      target_.settle();
      checker_.look();
   }

   void routeIs(Route const& route) override {
      auto const writes = checker_.writesIfUnchanged(route);
      target_.routeIs(route);
      checker_.routeIs(route);
      if (writes) {
         target_.runUntil(Qor::now());
         checker_.unchanged(route, *writes);
      }
      changed_ = true;
   }
   void routeDel(L3::VrfName const& vrf, Scenario::RouteKey const& key) override {
      target_.routeDel(vrf, key);
      checker_.routeDel({vrf, key});
      changed_ = true;
   }
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state) override {
      target_.linkIs(intf, state);
      checker_.linkIs(intf, state);
      changed_ = true;
   }
   void bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) override {
      target_.bfdIs(peer, state);
      checker_.bfdIs(peer, state);
      changed_ = true;
   }
   void configIs(Scenario::Config const& config) override {
      target_.configIs(config);
      checker_.configIs(config);
      changed_ = true;
   }
   void counterRouteIs(L3::VrfName const& vrf, Scenario::RouteKey const& key,
                       bool counted) override {
      target_.counterRouteIs(vrf, key, counted);
      checker_.counterRouteIs({vrf, key}, counted);
      changed_ = true;
   }
   void faultIs(Scenario::Fault const& fault) override {
      target_.faultIs(fault);
      checker_.faultIs(fault);
      changed_ = true;
   }
   void restart(Scenario::Restart const& restart) override {
      // What is under way when the agent crashes is compared as it stands.
      lookIfChanged(Qor::never);
      checker_.crash(restart);
      target_.restart(restart);
      changed_ = true;
   }
   Copies send(Packet const& packet) override;

   RouteFacts route(L3::VrfName const& vrf, Scenario::RouteKey const& key) const override {
      return target_.route(vrf, key);
   }
   std::uint64_t value(Scenario::State state) const override { return target_.value(state); }
   std::uint64_t value(Scenario::Count count) const override { return target_.value(count); }
   std::vector<std::string> check() override { return target_.check(); }
   std::vector<std::string> audit() const override { return target_.audit(); }
   void show(std::vector<std::string> const&) override {}

 private:
   // What is due at the present time is done before anything of a later time in any case.
   void lookIfChanged(double time) {
      if (!changed_ || time <= Qor::now()) return;
      changed_ = false;
      target_.runUntil(Qor::now());
      checker_.look();
   }

   SimulatedSwitch& simulated_;
   SimulatedTarget& target_;
   SoakChecker& checker_;
   bool changed_ = false;
};

}  // namespace Agent
