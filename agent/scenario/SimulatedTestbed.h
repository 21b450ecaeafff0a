// The testbed with a simulated switch.
#pragma once

#include "agent/scenario/Testbed.h"
#include "agent/switch/SimulatedSwitch.h"
#include "agent/timeline/Timeline.h"

namespace Agent {

class SimulatedTestbed final : public Testbed {
 public:
   // Both outlive the testbed, and the timeline may be null. Tables are printed to standard output,
   // unless `quiet`.
   SimulatedTestbed(SimulatedSwitch& simulated, Timeline* timeline, bool quiet)
         : simulated_(simulated), timeline_(timeline), quiet_(quiet) {}

   double nextDeadline() const override { return simulated_.activity().nextDeadline(); }
   void runUntil(double time) override { simulated_.activity().runUntil(time); }
   void settle() override { simulated_.settle(); }

   void routeIs(Route const& route) override;
   void routeDel(L3::VrfName const& vrf, Scenario::RouteKey const& key) override;
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state) override;
   void bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) override;
   void configIs(Scenario::Config const& config) override;
   void counterRouteIs(L3::VrfName const& vrf, Scenario::RouteKey const& key,
                       bool counted) override;
   void faultIs(Scenario::Fault const& fault) override;
   void restart(Scenario::Restart const& restart) override;
   Copies send(Packet const& packet) override {
      return copiesOf(simulated_.chip().forward(onChip(packet)));
   }
   // Converts a packet to the chip's form, which registers its VRF and interface, and the copies
   // from the chip's form.
   Sim::Packet onChip(Packet const& packet);
   static Copies copiesOf(Sim::Forwarded const& forwarded);

   RouteFacts route(L3::VrfName const& vrf, Scenario::RouteKey const& key) const override;
   std::uint64_t value(Scenario::State state) const override;
   std::uint64_t value(Scenario::Count count) const override;
   std::vector<std::string> forwardingFaults() override;
   std::vector<std::string> audit() const override { return simulated_.audit(); }

   void show(std::vector<std::string> const& views) override;
   void marked(std::string const& text) override { note(text); }

 private:
   Intf const& learn(Lnet::IntfId id);
   // Writes an instant to the timeline.
   void note(std::string const& text);

   SimulatedSwitch& simulated_;
   Timeline* const timeline_;
   bool const quiet_;
};

}  // namespace Agent
