// The tables of a simulated switch, for people and as JSON. Every text form is made from the JSON
// form, so both show the same. Keys follow `ip -j mroute show` where it has them (src, dst, iif,
// multipath/oif, packets, bytes), our own are camelCase; a false key is there, an absent one does
// not apply.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string_view>

#include "agent/switch/SimulatedSwitch.h"

namespace Agent {

enum class View {
   routes,   // every wanted route, and where it stands
   oifsets,  // the records in use, and who shares them
   zombies,  // the records that wait, the next to expire first
   chip,     // the chip's own tables
};

// The view of that name, or nothing.
std::optional<View> viewNamed(std::string_view name);
std::string_view nameOf(View view);

// An array of objects, a row each; for View::chip an object of such arrays.
nlohmann::ordered_json viewJson(View view, SimulatedSwitch const& simulated);
void printView(std::ostream& os, View view, nlohmann::ordered_json const& table);

}  // namespace Agent
