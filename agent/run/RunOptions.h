// The options of `velmroute run`.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/inspect/InspectPrompt.h"
#include "agent/report/Views.h"
#include "agent/switch/PathKind.h"

namespace Agent {

struct RunOptions {
   std::vector<std::string> files;  // "-" is standard input
   std::string mapFile;             // empty: interfaces are numbered as they occur
   std::string chipText;      // for parseChipOption(); empty: the defaults, or the scenario's chip
   std::string timelineFile;  // empty: no timeline
   std::vector<View> show;
   std::optional<PathKind> path;  // nothing: the path of the scenario, or PathKind::async
   bool json = false;
   bool check = true;
   bool keepGoing = false;
   // Commands that query the run at the time `until`, or at its end: first `evals`, and then, with
   // `inspect`, the commands of standard input. Such a run has no summary and no check.
   std::optional<double> until;
   std::vector<std::string> evals;
   bool inspect = false;

   bool inspects() const { return inspect || !evals.empty(); }
   InspectOptions inspected() const { return {evals, inspect, json}; }
};

}  // namespace Agent
