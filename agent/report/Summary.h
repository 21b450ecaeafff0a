// The summary of a run: figures as JSON, and the same figures as text.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <ostream>

#include "agent/report/ForwardingCheck.h"
#include "agent/switch/Switch.h"

namespace Agent {

struct RunFigures {
   std::uint64_t lines = 0;
   std::uint64_t events = 0;
   std::uint64_t routeEvents = 0;
   std::uint64_t deletions = 0;  // route events that are deletions
   std::uint64_t linkEvents = 0;
   std::uint64_t snapshots = 0;
   std::uint64_t snapshotRoutes = 0;  // routes in all snapshots
   std::uint64_t skippedLines = 0;
   std::uint64_t badLines = 0;
   std::uint64_t clockSteps = 0;
   std::string interruptedBy;    // the signal that ended the run, such as "INT"; empty: none did
   double captureSeconds = 0;    // time of the last event
   double processorSeconds = 0;  // processor time of the run; waiting for input takes none
};

nlohmann::ordered_json summaryJson(RunFigures const& figures, Switch const& theSwitch,
                                   ForwardingCheck const* check);
void printSummary(std::ostream& os, nlohmann::ordered_json const& summary);

}  // namespace Agent
