#include "agent/report/ReportedState.h"

#include <algorithm>

namespace Agent {

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

ReportedState reportedState(VelMroute::RouteState state) {
   switch (state) {
      case VelMroute::RouteState::queued:
      case VelMroute::RouteState::programming:
         return ReportedState::pending;
      case VelMroute::RouteState::inHardware:
         return ReportedState::offloaded;
      case VelMroute::RouteState::failed:
         return ReportedState::failed;
      default:
         return ReportedState::waiting;
   }
}

std::string_view waitsFor(VelMroute::RouteState state) {
   switch (state) {
      case VelMroute::RouteState::waitingGroup:
         return "group";
      case VelMroute::RouteState::waitingEntry:
         return "entry";
      case VelMroute::RouteState::waitingBoundary:
         return "boundary";
      case VelMroute::RouteState::waitingVrf:
         return "vrf";
      case VelMroute::RouteState::waitingVlan:
         return "vlan";
      default:
         return "";
   }
}

}  // namespace Agent
