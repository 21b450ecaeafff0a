#include "agent/report/ReportedState.h"

#include <algorithm>

namespace Agent {

using VelMroute::RouteState;

std::string_view nameOf(ReportedState state) {
   static constexpr std::string_view names[] = {"offloaded", "pending", "waiting", "failed",
                                                "trapped"};
   return names[static_cast<std::size_t>(state)];
}

std::optional<ReportedState> reportedStateNamed(std::string_view name) {
   auto const found = std::ranges::find(allReportedStates, name,
                                        [](ReportedState state) { return nameOf(state); });
   if (found == allReportedStates.end()) return std::nullopt;
   return *found;
}

ReportedState reportedState(RouteState state) {
   switch (state) {
      case RouteState::queued:
      case RouteState::programming:
         return ReportedState::pending;
      case RouteState::inHardware:
         return ReportedState::offloaded;
      case RouteState::failed:
         return ReportedState::failed;
      default:
         return ReportedState::waiting;
   }
}

std::string_view waitsFor(RouteState state) {
   switch (state) {
      case RouteState::waitingGroup:
         return "group";
      case RouteState::waitingEntry:
         return "entry";
      case RouteState::waitingBoundary:
         return "boundary";
      case RouteState::waitingVrf:
         return "vrf";
      case RouteState::waitingVlan:
         return "vlan";
      default:
         return "";
   }
}

}  // namespace Agent
