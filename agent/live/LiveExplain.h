// Explains a route of a live agent: the kernel's view of the route and the reason why it stays with
// the CPU, joined with the trace of its packets through the switch.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <ostream>

#include "agent/explain/RouteQuestion.h"
#include "agent/live/LiveAgent.h"

namespace Agent {

// The document of docs/schemas/explain.schema.json with the key "kernel". Without a switch it has the
// key "disconnected" in place of the trace. The tables of the bridge are those of the last
// LiveAgent::refresh().
nlohmann::ordered_json liveExplainJson(LiveAgent const& agent, RouteQuestion question);
void printLiveExplanation(std::ostream& os, nlohmann::ordered_json const& explanation);

}  // namespace Agent
