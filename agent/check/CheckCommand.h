// `velmroute check`: runs the kit (kit/Kit.h) over a platform.
#pragma once

#include <cstdint>

#include "agent/report/OutputFormat.h"
#include "agent/switch/PlatformChoice.h"

namespace Agent {

struct CheckOptions {
   // The simulated chip is small unless the options of the platform say otherwise.
   NamedPlatform platform = {PathKind::async, simulatedPlatform};
   std::uint64_t seed = 1;
   std::uint32_t lives = 8;
   std::uint32_t steps = 120;  // of a life
   std::uint32_t room = 1024;  // as KitOptions::room
   std::vector<std::string> only = {};
   bool tap = false;
   OutputFormat format;
};

// Returns the exit code: exitFailed if a check fails or the platform cannot be checked, exitUsage for
// an unknown check. Prints the report to standard output.
int runCheck(CheckOptions const& options);

}  // namespace Agent
