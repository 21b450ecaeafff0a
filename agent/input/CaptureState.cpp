#include "agent/input/CaptureState.h"

#include <algorithm>
#include <utility>

namespace Agent {

std::string RouteState::toString() const {
   std::string text = resolved ? "iif " : "unresolved, iif ";
   text += iif ? iif.name() : "none";
   text += ", oifs";
   for (Lnet::IntfId const oif : oifs)
      text += " " + oif.name();
   if (oifs.empty()) text += " none";
   return text;
}

std::string RouteDifference::toString() const {
   auto const side = [](std::optional<RouteState> const& state) {
      return state ? state->toString() : "no route";
   };
   return id.toString() + ": expected " + side(expected) + ", got " + side(actual);
}

std::vector<RouteDifference> differences(RouteStates const& expected, RouteStates const& actual) {
   std::vector<RouteDifference> found;
   auto e = expected.begin();
   auto a = actual.begin();
   while (e != expected.end() || a != actual.end()) {
      if (a == actual.end() || (e != expected.end() && e->first < a->first)) {
         found.push_back({e->first, e->second, std::nullopt});
         ++e;
      } else if (e == expected.end() || a->first < e->first) {
         found.push_back({a->first, std::nullopt, a->second});
         ++a;
      } else {
         if (e->second != a->second) found.push_back({e->first, e->second, a->second});
         ++e;
         ++a;
      }
   }
   return found;
}

void CaptureState::apply(CaptureEvent const& event) {
   std::visit([this](auto const& e) { apply(e); }, event);
}

void CaptureState::apply(MrouteEvent const& event) {
   RouteId const id{event.vrf, event.key};
   if (event.deleted) {
      routes_.erase(id);
      return;
   }
   RouteState& state = routes_[id];
   state.iif = event.iif;
   state.resolved = event.resolved;
   state.oifs = event.oifs;
   std::sort(state.oifs.begin(), state.oifs.end());
   state.oifs.erase(std::unique(state.oifs.begin(), state.oifs.end()), state.oifs.end());
}

void CaptureState::apply(LinkEvent const& event) {
   Lnet::IntfId const before = std::exchange(linkNames_[event.ifindex], event.intf);
   auto const renamed = before == event.intf ? links_.end() : links_.find(before);
   if (renamed != links_.end() && renamed->second.ifindex == event.ifindex) links_.erase(renamed);
   links_[event.intf] = {event.ifindex, event.status, event.adminUp};
}

void CaptureState::apply(SnapshotEvent const& event) {
   std::erase_if(routes_, [&event](auto const& route) {
      return event.covers(route.first.vrf, route.first.key);
   });
   for (MrouteEvent const& route : event.routes)
      apply(route);
}

}  // namespace Agent
