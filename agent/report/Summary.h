// What a run did, in figures: for people and, with the same content, as JSON.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <ostream>

#include "agent/report/ForwardingCheck.h"
#include "agent/switch/SimulatedSwitch.h"

namespace Agent {

struct RunFigures {
   std::uint64_t lines = 0;
   std::uint64_t events = 0;
   std::uint64_t routeEvents = 0;
   std::uint64_t deletions = 0;  // among routeEvents
   std::uint64_t linkEvents = 0;
   std::uint64_t snapshots = 0;
   std::uint64_t snapshotRoutes = 0;  // in all of them
   std::uint64_t skippedLines = 0;
   std::uint64_t badLines = 0;
   std::uint64_t clockSteps = 0;
   double captureSeconds = 0;    // of the input's own time
   double processorSeconds = 0;  // that the run took, not counting waits for input
};

nlohmann::ordered_json summaryJson(RunFigures const& figures, SimulatedSwitch const& simulated,
                                   ForwardingCheck const* check);
void printSummary(std::ostream& os, nlohmann::ordered_json const& summary);

}  // namespace Agent
