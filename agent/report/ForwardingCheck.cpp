#include "agent/report/ForwardingCheck.h"

#include <map>
#include <set>

#include "platform/Format.h"

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

Outputs expectedOutputs(Switch const& theSwitch, CaptureState const& capture,
                        RouteState const& route) {
   Outputs outputs;
   for (Lnet::IntfId const oif : route.oifs) {
      if (theSwitch.intf(oif).cpu) {
         outputs.insert("cpu");
      } else if (!linkDown(capture, oif) || !theSwitch.linkFollows(oif)) {
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
   Comparison(Switch& theSwitch, CaptureState const& capture)
         : switch_(theSwitch), capture_(capture) {}

   ForwardingCheck run() {
      if (!switch_.platform().probe()) {
         result_.leftOut = "the platform sends no packets";
         return std::move(result_);
      }
      for (auto const& [id, route] : capture_.routes()) {
         if (route.resolved && route.iif) checkRoute(id, route);
      }
      checkNothingElse();
      for (std::string const& fault : switch_.audit()) {
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
      auto const route = switch_.programmer().view(id.vrf, id.key);
      if (!route) return differs(id, "the route of the capture is unknown to the route programmer");
      if (route->state() == State::queued || route->state() == State::programming) {
         return differs(id, "not settled: " + route->reason());
      }
      if (route->state() != State::inHardware) {
         result_.notPlaced.push_back({id, route->reason()});
         return;
      }
      ++result_.routes;
      auto const vlan = switch_.intf(expected.iif).vlan;
      placed_[{switch_.vrfId(id.vrf)->value(), id.key}] = vlan;
      VelMroute::Probe::Packet packet;
      packet.vrfId = *switch_.vrfId(id.vrf);
      packet.source = id.key.kind() == IpGenRouteKey::kindStarGroup ? anySource(capture_, id)
                                                                    : id.key.source().address();
      packet.group = id.key.group().address();
      packet.in = expected.iif;
      auto const seen = switch_.send(packet);
      Outputs actual;
      for (auto const& copy : seen.copies)
         actual.insert(copy.intfId().name());
      if (seen.cpu) actual.insert("cpu");
      Outputs const wanted = expectedOutputs(switch_, capture_, expected);
      if (!hitsOwnEntry(packet.vrfId, id, *route, seen)) {
         differs(id, fmt::format("the chip has no entry for it{}", verdict(seen)));
      } else if (actual != wanted) {
         differs(id, fmt::format("expected {}, chip forwards to {}{}", toString(wanted),
                                 toString(actual), verdict(seen)));
      }
   }

   static std::string verdict(VelMroute::Probe::Seen const& seen) {
      return seen.verdict ? fmt::format(" ({})", *seen.verdict) : "";
   }

   // Equal outputs do not prove that the packet hit this entry, because another route may have the
   // same outputs. If the chip does not disclose the entry, the one of the route's handle is
   // compared, as far as it can be read.
   bool hitsOwnEntry(Vel::VrfId vrfId, RouteId const& id, RouteView const& route,
                     VelMroute::Probe::Seen const& seen) const {
      if (!seen.entry && seen.verdict) return false;
      if (!switch_.canRead()) return true;
      auto const entry = switch_.view().entry(seen.entry.value_or(route.handle()));
      return entry && entry->route.vrfId == vrfId && entry->route.key == id.key;
   }

   // Reports the chip's entries that belong to no route in hardware.
   void checkNothingElse() {
      switch_.view().forEachEntry([&](VelMroute::View::Entry const& entry) {
         auto const& [vrfId, key, vlan, bridge] = entry.route;
         if (entry.route.bridge) return;
         auto const placed = placed_.find({vrfId.value(), key});
         if (placed != placed_.end() && placed->second == vlan) return;
         result_.differences.push_back(fmt::format(
               "route entry {} of the chip: vrf id {} {} vlan {} belongs to no route of "
               "the capture in hardware",
               entry.number, vrfId.value(), key, vlan));
      });
   }

   Switch& switch_;
   CaptureState const& capture_;
   ForwardingCheck result_;
   // The accepting vlans of the routes in hardware, by VRF id and key.
   std::map<std::pair<Qor::U32, IpGenRouteKey>, Bridging::VlanIdOrNone> placed_;
};

}  // namespace

ForwardingCheck checkForwarding(Switch& theSwitch, CaptureState const& capture) {
   return Comparison(theSwitch, capture).run();
}

}  // namespace Agent
