// The name of a route's state in scenarios.
#pragma once

#include <string>

#include "platform/Format.h"
#include "programmer/RouteStatus.h"

namespace Agent {

// The name of the enumerator; but a queued route is "marked" for the next pass.
inline std::string nameOf(VelMroute::RouteState state) {
   return state == VelMroute::RouteState::queued ? "marked" : fmt::format("{}", state);
}

}  // namespace Agent
