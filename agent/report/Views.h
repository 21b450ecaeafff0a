// The tables of a simulated switch, as text and as JSON. The text is made from the JSON, so both
// have the same content. Keys are those of `ip -j mroute show` where it has them (src, dst, iif,
// multipath/oif, packets, bytes); other keys are in camelCase. A key that does not apply is absent,
// and a key that applies is present also if it is false.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string_view>

#include "agent/switch/Switch.h"

namespace Agent {

enum class View {
   routes,   // every wanted route with its state
   oifsets,  // the records in use, with the number of routes that share each
   zombies,  // the zombie records, in the order of expiry
   chip,     // the chip's own tables
};

// The view with this name, or nothing.
std::optional<View> viewNamed(std::string_view name);
std::string_view nameOf(View view);

// An array with one object for each row. View::chip is an object of such arrays.
nlohmann::ordered_json viewJson(View view, Switch const& theSwitch);
void printView(std::ostream& os, View view, nlohmann::ordered_json const& table);

}  // namespace Agent
