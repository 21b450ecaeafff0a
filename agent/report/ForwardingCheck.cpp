#include "agent/report/ForwardingCheck.h"

#include <map>
#include <set>

#include "platform/sim/Format.h"

namespace Agent {

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;

// The names of the interfaces at which the copies of a packet leave, with "cpu" for the CPU.
using Outputs = std::set<std::string>;

std::string toString(Outputs const& outputs) {
   return outputs.empty() ? "nowhere" : fmt::format("{}", fmt::join(outputs, " "));
}

bool linkDown(CaptureState const& capture, Lnet::IntfId intf) {
   auto const link = capture.links().find(intf);
   if (link == capture.links().end()) return false;
   return link->second.status != Interface::IntfOperStatus::up &&
          link->second.status != Interface::IntfOperStatus::unknown;
}

Outputs expectedOutputs(SimulatedSwitch const& simulated, CaptureState const& capture,
                        RouteState const& route) {
   Outputs outputs;
   for (Lnet::IntfId const oif : route.oifs) {
      if (simulated.intf(oif).cpu) {
         outputs.insert("cpu");
      } else if (!linkDown(capture, oif)) {
         outputs.insert(oif.name());
      }
   }
   return outputs;
}

// A source for a packet that must hit a (*,G) route. No (S,G) route of the capture may have this
// source; the ranges are those for documentation.
Lnet::IpGenAddr anySource(CaptureState const& capture, RouteId const& id) {
   for (unsigned i = 1;; ++i) {
      Lnet::IpGenAddr const source =
            id.key.group().family() == Lnet::IpFamily::v4
                  ? Lnet::IpGenAddr::v4(0xC6336400 + i)  // 198.51.100.0/24 and on
                  : Lnet::IpGenAddr::v6({0x20, 0x01, 0x0d, 0xb8, 0xff, 0xff, 0, 0, 0, 0, 0, 0, 0, 0,
                                         static_cast<std::uint8_t>(i >> 8),
                                         static_cast<std::uint8_t>(i)});
      RouteId const own{id.vrf, IpGenRouteKey::fromAddresses(source, id.key.group().address())};
      if (!capture.routes().contains(own)) return source;
   }
}

class Comparison {
 public:
   Comparison(SimulatedSwitch& simulated, CaptureState const& capture)
         : simulated_(simulated), capture_(capture) {}

   ForwardingCheck run() {
      for (auto const& [id, route] : capture_.routes()) {
         if (route.resolved && route.iif) checkRoute(id, route);
      }
      checkNothingElse();
      for (std::string const& fault : simulated_.audit()) {
         result_.differences.push_back("chip: " + fault);
      }
      return std::move(result_);
   }

 private:
   using State = VelMroute::RouteState;

   void differs(RouteId const& id, std::string const& text) {
      result_.differences.push_back(id.toString() + ": " + text);
   }

   void checkRoute(RouteId const& id, RouteState const& expected) {
      auto const route = simulated_.programmer().view(id.vrf, id.key);
      if (!route) return differs(id, "the route of the capture is unknown to the route programmer");
      if (route->state() == State::queued || route->state() == State::programming) {
         return differs(id, "not settled: " + route->reason());
      }
      if (route->state() != State::inHardware) {
         result_.notPlaced.push_back({id, route->reason()});
         return;
      }
      ++result_.routes;
      auto const vlan = simulated_.intf(expected.iif).vlan;
      placed_[{simulated_.vrfId(id.vrf)->value(), id.key}] = vlan;
      Sim::Packet packet;
      packet.vrfId = simulated_.vrfId(id.vrf)->value();
      packet.source = id.key.kind() == IpGenRouteKey::kindStarGroup ? anySource(capture_, id)
                                                                    : id.key.source().address();
      packet.group = id.key.group().address();
      packet.vlan = vlan;
      Sim::Forwarded const forwarded = simulated_.chip().forward(packet);
      Outputs actual;
      for (auto const& copy : forwarded.copies)
         actual.insert(copy.intfId().name());
      if (forwarded.toCpu) actual.insert("cpu");
      Outputs const wanted = expectedOutputs(simulated_, capture_, expected);
      if (!hitsOwnEntry(packet.vrfId, id, forwarded)) {
         differs(id, fmt::format("the chip has no entry for it ({})", forwarded.result));
      } else if (actual != wanted) {
         differs(id, fmt::format("expected {}, chip forwards to {} ({})", toString(wanted),
                                 toString(actual), forwarded.result));
      }
   }

   // Equal outputs do not prove that the packet hit this entry, because another route may have the
   // same outputs.
   bool hitsOwnEntry(Qor::U32 vrfId, RouteId const& id, Sim::Forwarded const& forwarded) const {
      if (!forwarded.entry) return false;
      Sim::Entry const* const entry = simulated_.chip().routes().find(*forwarded.entry);
      return entry->vrfId == vrfId && entry->key == id.key;
   }

   // Reports the chip's entries that belong to no route in hardware.
   void checkNothingElse() {
      simulated_.chip().routes().forEach([&](Qor::U32 index, Sim::Entry const& entry) {
         auto const placed = placed_.find({entry.vrfId, entry.key});
         if (placed != placed_.end() && placed->second == entry.acceptingVlan) return;
         result_.differences.push_back(fmt::format(
               "route entry {} of the chip: vrf id {} {} vlan {} belongs to no route of "
               "the capture in hardware",
               index, entry.vrfId, entry.key, entry.acceptingVlan));
      });
   }

   SimulatedSwitch& simulated_;
   CaptureState const& capture_;
   ForwardingCheck result_;
   // The accepting vlans of the routes in hardware, by VRF id and key.
   std::map<std::pair<Qor::U32, IpGenRouteKey>, Bridging::VlanIdOrNone> placed_;
};

}  // namespace

ForwardingCheck checkForwarding(SimulatedSwitch& simulated, CaptureState const& capture) {
   return Comparison(simulated, capture).run();
}

}  // namespace Agent
