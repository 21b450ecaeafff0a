// `velmroute soak`: plays random scenarios, or given ones, under the oracle.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/report/OutputFormat.h"
#include "agent/switch/PlatformChoice.h"

namespace Agent {

struct SoakOptions {
   std::vector<std::string> files;  // the scenarios to play; without any, random episodes
   std::uint64_t seed = 1;
   std::uint64_t operations = 100'000;  // for each path; with `sweep`, the plays of each scenario
   std::optional<PathKind> path;        // unset: both paths, or the only path of a scenario
   std::string reproducerFile;          // for the shortest reproducer; empty: standard error
   PlatformSource platforms = simulatedPlatform;
   OutputFormat format;
   bool sweep = false;  // play each scenario once for each way in which each hook call can fail
};

// Returns the exit code: exitFailed after a finding or a bad scenario, exitUsage if `sweep` has no
// scenario or the platform lacks an ability. Prints the figures to standard output, and findings and errors to standard error.
int runSoak(SoakOptions const& options);

}  // namespace Agent
