// `velmroute run` with a scenario: plays it on a simulated switch, and reports what was not as
// expected.
#pragma once

#include "agent/RunCommand.h"

namespace Agent {

// Plays options.files[0]. Failed expectations, each with its place, go to standard error and make
// the exit code exitFailed.
int runScenario(RunOptions const& options);

}  // namespace Agent
