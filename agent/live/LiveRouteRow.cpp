#include "agent/live/LiveRouteRow.h"

#include <utility>

namespace Agent {

RouteRow routeRow(LiveAgent const& agent, Kernel::RouteKey const& key,
                  LiveRoutes::Known const& known) {
   RouteRow row;
   if (auto const view = agent.viewOf(known)) {
      row = routeRow(agent.theSwitch(), *view);
   } else {
      auto const vrf = agent.vrfOf(known.route.input);
      if (vrf) row.vrf = vrf->name();
      row.key = Routing::Multicast::Fib::IpGenRouteKey::fromAddresses(key.source, key.group);
      if (known.route.input) row.iif = agent.interfaceName(known.route.input);
      for (Qor::U32 const output : known.route.outputs)
         row.outputs.push_back({agent.interfaceName(output)});
   }
   row.table = key.table;
   LiveAgent::KnownState state = agent.stateOf(key, known);
   row.state = state.state;
   row.waitsFor = std::move(state.waitsFor);
   row.trapReason = std::move(state.trapReason);
   row.reason = std::move(state.reason);
   row.fault = std::move(state.fault);
   return row;
}

std::vector<RouteRow> routeRows(LiveAgent const& agent) {
   std::vector<RouteRow> rows;
   for (auto const& [key, known] : agent.routes().routes())
      rows.push_back(routeRow(agent, key, known));
   return rows;
}

}  // namespace Agent
