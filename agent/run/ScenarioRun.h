// `velmroute run` with a scenario, which is played on a simulated switch.
#pragma once

#include "agent/run/RunOptions.h"

namespace Agent {

// Plays options.files[0] without the lines of the other path. Failed expectations are reported on
// standard error, each with its place, and the exit code is exitFailed then. A scenario that is for
// the other path is not played; the exit code is exitUsage.
int runScenario(RunOptions const& options);

}  // namespace Agent
