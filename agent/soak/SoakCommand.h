// `velmroute soak`: plays random scenarios, or given ones, under the oracle.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/switch/PathKind.h"

namespace Agent {

struct SoakOptions {
   std::vector<std::string> files;  // scenarios to play under the oracle; none: random ones
   std::uint64_t seed = 1;
   std::uint64_t operations = 100'000;
   std::optional<PathKind> path;  // nothing: that of a scenario, or both
   std::string reproducerFile;    // where the shortest replay goes; empty: standard error
   bool json = false;
   bool sweep = false;  // of each file: every hook call fails once
};

// Exit codes as of `velmroute run`; exitFailed when something was found.
int runSoak(SoakOptions const& options);

}  // namespace Agent
