// The answers of a live agent to the questions of an operator, as text and as JSON. The text is made
// from the JSON, so both have the same content. No question changes the agent.
//
//    show [routes [FILTER]]                       agent/report/RouteFilter.h
//    show interfaces | status | VIEW              VIEW: oifsets, zombies, chip (agent/report/Views.h)
//    explain ROUTE                                agent/live/LiveExplain.h
//    inspect COMMAND                              a command of agent/inspect/Inspector.h that reads
//    complete LINE                                agent/live/LiveCompletion.h
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "agent/live/LiveAgent.h"
#include "agent/report/OutputFormat.h"

namespace Agent {

struct LiveAnswer {
   bool good = true;
   std::string text;  // of a bad answer: the reason, in one line
};

// The answer to one line. The tables of the bridge are as of the last LiveAgent::refresh().
LiveAnswer answerTo(LiveAgent& agent, std::string_view line, OutputFormat format);

// "(10.0.0.2, 232.1.1.1)", "(*, 239.1.1.1)"
std::string routeName(Kernel::RouteKey const& key);

// docs/json.md describes the keys.
nlohmann::ordered_json interfacesJson(LiveAgent const& agent);
nlohmann::ordered_json statusJson(LiveAgent const& agent);

}  // namespace Agent
