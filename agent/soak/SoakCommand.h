// `velmroute soak`: plays random scenarios, or given ones, under the checker.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/switch/Path.h"

namespace Agent {

struct SoakOptions {
   std::vector<std::string> files;  // scenarios to play under the checker; none: random ones
   std::uint64_t seed = 1;
   std::uint64_t operations = 100'000;
   std::optional<Path> path;  // nothing: that of a scenario, or both
   std::string replayFile;    // where the shortest replay goes; empty: standard error
   bool json = false;
   bool sweep = false;  // of each file: every hook call fails once
};

// Exit codes as of `velmroute run`; exitFailed when something was found.
int runSoak(SoakOptions const& options);

}  // namespace Agent
