// The options of `velmroute run`.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/inspect/InspectPrompt.h"
#include "agent/report/Views.h"
#include "agent/switch/Path.h"

namespace Agent {

struct RunOptions {
   std::vector<std::string> files;  // "-" is standard input
   std::string mapFile;             // empty: interfaces are numbered on first sight
   std::string chipText;      // as parseChipOption() reads it; empty: the defaults, or a scenario's
   std::string timelineFile;  // empty: none
   std::vector<View> show;
   std::optional<Path> path;  // nothing: that of the scenario, or Path::async
   bool json = false;
   bool check = true;
   bool keepGoing = false;
   // Looking at the run in its place: at this time, or at the end, by these commands, and then by
   // those of standard input. Neither a summary nor the check is made then.
   std::optional<double> until;
   std::vector<std::string> evals;
   bool inspect = false;

   bool inspects() const { return inspect || !evals.empty(); }
   InspectOptions inspected() const { return {evals, inspect, json}; }
};

}  // namespace Agent
