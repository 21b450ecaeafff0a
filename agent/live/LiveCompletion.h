// Completes the commands of an operator with the routes and interfaces of a live agent.
#pragma once

#include <string>
#include <string_view>

#include "agent/inspect/Completion.h"
#include "agent/live/LiveAgent.h"

namespace Agent {

// The first words of a line, and the views behind "show".
inline constexpr std::string_view liveCommands[] = {"show", "explain", "inspect", "watch"};
inline constexpr std::string_view liveViews[] = {"routes",  "interfaces", "status",
                                                 "oifsets", "zombies",    "chip"};

// The completions of the last word of a line that begins with "show", "explain", "inspect" or
// "watch", with one in each line of the text. Routes are those of the kernel, also without a switch.
std::string completionsOf(LiveAgent& agent, std::string_view line);

}  // namespace Agent
