// The testbed with a whole switch, on any platform.
#pragma once

#include "agent/page/Outages.h"
#include "agent/scenario/Testbed.h"
#include "agent/switch/Switch.h"
#include "agent/timeline/Timeline.h"

namespace Agent {

class SwitchTestbed final : public Testbed {
 public:
   // All outlive the testbed. Timeline and outages may be null. Tables are printed to standard
   // output, unless `quiet`.
   SwitchTestbed(Switch& theSwitch, Timeline* timeline, bool quiet, Outages* outages = nullptr)
         : switch_(theSwitch), timeline_(timeline), quiet_(quiet), outages_(outages) {}

   double nextDeadline() const override { return switch_.nextDeadline(); }
   void runUntil(double time) override { switch_.runUntil(time); }
   void settle() override { switch_.settle(); }

   void routeIs(Route const& route) override;
   void routeDel(L3::VrfName const& vrf, Scenario::RouteKey const& key) override;
   void linkIs(Lnet::IntfId intf, Interface::IntfOperStatus state) override;
   void bfdIs(Bfd::Peer const& peer, std::optional<Bfd::OperState> state) override;
   void configIs(Scenario::Config const& config) override;
   void counterRouteIs(L3::VrfName const& vrf, Scenario::RouteKey const& key,
                       bool counted) override;
   void faultIs(Scenario::Fault const& fault) override;
   void restart(Scenario::Restart const& restart) override;
   Copies send(Packet const& packet) override { return copiesOf(switch_.send(onChip(packet))); }
   void sent(Packet const& packet, Scenario::RouteKey const& key, Copies const& copies) override;
   // Converts a packet to the form of the probe, which registers its VRF and interface, and the
   // copies from that form.
   VelMroute::Probe::Packet onChip(Packet const& packet);
   static Copies copiesOf(VelMroute::Probe::Seen const& seen);

   RouteFacts route(L3::VrfName const& vrf, Scenario::RouteKey const& key) const override;
   std::uint64_t value(Scenario::State state) const override;
   std::uint64_t value(Scenario::Count count) const override;
   std::vector<std::string> forwardingFaults() override;
   std::vector<std::string> audit() const override { return switch_.audit(); }

   void show(std::vector<std::string> const& views) override;
   void marked(std::string const& text) override { note(text); }

 private:
   Intf const& learn(Lnet::IntfId id);
   // Writes an instant to the timeline.
   void note(std::string const& text);
   void note(std::string const& text, Timeline::Args const& args);

   Switch& switch_;
   Timeline* const timeline_;
   bool const quiet_;
   Outages* const outages_;
};

}  // namespace Agent
