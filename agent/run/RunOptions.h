// The options of `velmroute run`.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/explain/RouteQuestion.h"
#include "agent/inspect/InspectPrompt.h"
#include "agent/report/OutputFormat.h"
#include "agent/report/View.h"
#include "agent/switch/PlatformChoice.h"

namespace Agent {

struct RunOptions {
   std::vector<std::string> files;  // "-" is standard input
   std::string mapFile;             // empty: interfaces are numbered as they occur
   std::string chipText;      // options of the simulated chip, which override those of a scenario
   std::string timelineFile;  // empty: no timeline
   std::string reportFile;    // empty: no report
   std::vector<ViewRequest> show;
   PlatformSource platforms = simulatedPlatform;
   std::optional<PathKind> path;  // nothing: the path of the scenario, or PathKind::async
   OutputFormat format;
   bool check = true;
   bool checkHooks = false;  // compare the calls of the hooks with their contract
   bool keepGoing = false;
   bool strict = false;  // a run with shortfalls (agent/report/Shortfalls.h) fails
   // Commands that query the run at the time `until`, or at its end: first `evals`, and then, with
   // `inspect`, the commands of standard input. Such a run has no summary and no check.
   std::optional<double> until;
   std::vector<std::string> evals;
   bool inspect = false;
   // In place of commands: the question of `velmroute explain FILE... ROUTE`.
   std::optional<RouteQuestion> question;

   // The platform of the run. The options of the command line follow those of the scenario.
   PlatformChoice platform(PathKind onPath, VelMroute::PlatformOptions settings) const {
      if (!chipText.empty()) settings.add(chipText);
      PlatformChoice choice = platforms(onPath, std::move(settings));
      choice.checksHooks = checkHooks;
      choice.explains = inspects() || !reportFile.empty();
      return choice;
   }

   bool inspects() const { return inspect || !evals.empty() || question; }
   InspectOptions inspected() const { return {evals, inspect, format}; }
};

}  // namespace Agent
