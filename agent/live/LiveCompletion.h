// Completes the commands of an operator with the routes and interfaces of a live agent.
#pragma once

#include <string_view>

#include "agent/inspect/Completion.h"
#include "agent/live/LiveAgent.h"

namespace Agent {

// The completions of the last word of a line that begins with "show", "explain", "inspect" or
// "watch", with one in each line of the text. Routes are those of the kernel, also without a switch.
std::string completionsOf(LiveAgent& agent, std::string_view line);

}  // namespace Agent
