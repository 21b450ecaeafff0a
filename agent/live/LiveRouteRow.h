// The routes of the kernel as rows of tables and documents (agent/report/RouteRow.h).
#pragma once

#include <vector>

#include "agent/live/LiveAgent.h"
#include "agent/report/RouteRow.h"

namespace Agent {

// A route that the switch has has the facts of the switch, and any other those of the kernel.
RouteRow routeRow(LiveAgent const& agent, Kernel::RouteKey const& key,
                  LiveRoutes::Known const& known);
// All routes, in no order.
std::vector<RouteRow> routeRows(LiveAgent const& agent);

}  // namespace Agent
