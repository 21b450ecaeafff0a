// The state of a route as reports name it: tables, JSON, metrics and pages.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "programmer/RouteStatus.h"

namespace Agent {

enum class ReportedState : unsigned char {
   offloaded,  // in hardware as wanted
   pending,    // queued, or its writes are under way
   waiting,    // for room, for its VRF, for a vlan, or for the switch; see waitsFor()
   failed,     // its writes failed, or the chip takes no such route
   trapped,    // stays with the CPU on purpose; of a live agent alone
};
inline constexpr std::array allReportedStates{ReportedState::offloaded, ReportedState::pending,
                                              ReportedState::waiting, ReportedState::failed,
                                              ReportedState::trapped};

std::string_view nameOf(ReportedState state);
std::optional<ReportedState> reportedStateNamed(std::string_view name);

ReportedState reportedState(VelMroute::RouteState state);
// The thing for which a waiting route waits: "group", "entry" or "boundary" for room in a table,
// "vrf" or "vlan". Empty for the other states. A route of a live agent also waits for its "switch".
std::string_view waitsFor(VelMroute::RouteState state);

}  // namespace Agent
