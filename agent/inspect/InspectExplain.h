// Why a route flows, or why not: what an operator wants to know of one (source, group), on one
// screen. Looks at the route programmer, the table programmer's record, the published status and
// the chip, changes nothing, and sends no packet.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string_view>

#include "agent/switch/SimulatedSwitch.h"

namespace Agent {

// What is asked for. Without a VRF, in all of them.
struct RouteQuestion {
   std::optional<L3::VrfName> vrf;
   RouteProgrammer::RouteKey key;
};

// Reads "10.0.0.2,239.1.1.1", "(10.0.0.2, 239.1.1.1)", "10.0.0.2 239.1.1.1", with "*" for any
// source, either family, and "vrf NAME" before or behind it. InspectError otherwise.
RouteQuestion routeQuestion(std::string_view text);

// An object with the question; "routes", an explanation each, of those that are wanted; where there
// is none, "near": what is wanted or on the chip instead; "recovering", whether routes may still be
// told again after a restart; and "tables", how full they are.
nlohmann::ordered_json explainRoute(SimulatedSwitch const& simulated,
                                    RouteQuestion const& question);
// The same for people.
void printExplanation(std::ostream& os, nlohmann::ordered_json const& explanation);

}  // namespace Agent
