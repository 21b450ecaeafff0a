// `velmroute run` with a scenario: plays it on a simulated switch, and reports what was not as
// expected.
#pragma once

#include "agent/run/RunOptions.h"

namespace Agent {

// Plays options.files[0], but for the lines of the other path. Failed expectations, each with its
// place, go to standard error and make the exit code exitFailed. A scenario that is not for this
// path is not played: exitUsage.
int runScenario(RunOptions const& options);

}  // namespace Agent
