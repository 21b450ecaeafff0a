#include "agent/Check.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace Agent {

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;

// Where the copies of a packet come out: interface names, and "cpu".
using Outputs = std::set<std::string>;

std::string toString(Outputs const& outputs) {
   std::string text;
   for (std::string const& output : outputs)
      text += (text.empty() ? "" : " ") + output;
   return text.empty() ? "nowhere" : text;
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

// A source that the packet of a (*,G) route may come from: one without an (S,G) of its own, from
// the ranges set aside for documentation.
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

class Check {
 public:
   Check(SimulatedSwitch& simulated, CaptureState const& capture)
         : simulated_(simulated), capture_(capture) {}

   CheckResult run() {
      for (auto const& [id, route] : capture_.routes()) {
         if (route.resolved && route.iif) checkRoute(id, route);
      }
      checkNothingElse();
      for (std::string const& fault : simulated_.platform().audit()) {
         result_.differences.push_back("chip: " + fault);
      }
      return std::move(result_);
   }

 private:
   void checkRoute(RouteId const& id, RouteState const& expected) {
      auto const* route = simulated_.routeProgrammer().route(id.vrf, id.key);
      if (route && route->state() != RouteProgrammer::State::inHardware) {
         result_.notPlaced.push_back({id, route->reason()});
         return;
      }
      ++result_.routes;
      Sim::Packet packet;
      packet.vrfId = simulated_.vrfId(id.vrf)->value();
      packet.source = id.key.kind() == IpGenRouteKey::kindStarGroup ? anySource(capture_, id)
                                                                    : id.key.source().address();
      packet.group = id.key.group().address();
      packet.vlan = simulated_.intf(expected.iif).vlan;
      Sim::Forwarded const forwarded = simulated_.chip().forward(packet);
      Outputs actual;
      for (auto const& copy : forwarded.copies)
         actual.insert(copy.intfId().name());
      if (forwarded.toCpu) actual.insert("cpu");
      Outputs const wanted = expectedOutputs(simulated_, capture_, expected);
      if (actual == wanted && actual.size() == forwarded.copies.size() + forwarded.toCpu) return;
      std::ostringstream line;
      line << id.toString() << ": expected " << toString(wanted) << ", chip forwards to "
           << toString(actual);
      line << " (" << forwarded.result << ')';
      result_.differences.push_back(line.str());
   }

   // Entries of the chip that stand for no route of the capture.
   void checkNothingElse() {
      std::set<std::pair<Qor::U32, IpGenRouteKey>> captured;
      for (auto const& [id, route] : capture_.routes()) {
         if (route.resolved && route.iif) {
            captured.emplace(simulated_.vrfId(id.vrf)->value(), id.key);
         }
      }
      simulated_.chip().routes().forEach([&](Qor::U32, Sim::Entry const& entry) {
         if (captured.contains({entry.vrfId, entry.key})) return;
         std::ostringstream line;
         line << "vrf id " << entry.vrfId << ' ' << entry.key
              << ": not in the capture, but the chip has an entry for it";
         result_.differences.push_back(line.str());
      });
   }

   SimulatedSwitch& simulated_;
   CaptureState const& capture_;
   CheckResult result_;
};

}  // namespace

CheckResult checkForwarding(SimulatedSwitch& simulated, CaptureState const& capture) {
   return Check(simulated, capture).run();
}

}  // namespace Agent
