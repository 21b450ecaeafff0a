// The names of the tables of a switch that a command shows.
#pragma once

#include <string_view>

#include "agent/report/RouteFilter.h"

namespace Agent {

enum class View {
   routes,   // every wanted route with its state
   oifsets,  // the records in use, with the number of routes that share each
   zombies,  // the zombie records, in the order of expiry
   chip,     // the chip's own tables
};

std::string_view nameOf(View view);

// A view as people ask for it: "chip", or "routes" with a filter behind it.
struct ViewRequest {
   View view = View::routes;
   RouteFilter filter = {};
};

// Raises std::invalid_argument, with a text that names the known words, for other texts.
ViewRequest viewRequest(std::string_view text);

}  // namespace Agent
