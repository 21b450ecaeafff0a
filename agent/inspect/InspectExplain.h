// Explains to an operator why the packets of one (source, group) arrive or do not arrive. The
// explanation is read from the programmer, the record of the table programmer, the published
// status and the chip. It changes nothing and sends no packet.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string_view>

#include "agent/switch/Switch.h"

namespace Agent {

// The route to explain. Without a VRF it is explained in all VRFs.
struct RouteQuestion {
   std::optional<L3::VrfName> vrf;
   RouteKey key;
};

// Parses "10.0.0.2,239.1.1.1", "(10.0.0.2, 239.1.1.1)" or "10.0.0.2 239.1.1.1", with "*" for any
// source, in either address family. "vrf NAME" may stand before or behind the route. Raises
// InspectError for other texts.
RouteQuestion routeQuestion(std::string_view text);

// An object with the question and these keys: "routes" has an explanation for each wanted route. If
// there is none, "near" has similar routes that are wanted, and entries that match the packets.
// "recovering" is true during the replay after a restart. "tables" has the use of the chip's
// tables.
nlohmann::ordered_json explainRoute(Switch const& theSwitch, RouteQuestion const& question);
// Prints the explanation as text.
void printExplanation(std::ostream& os, nlohmann::ordered_json const& explanation);

}  // namespace Agent
