// `velmroute run` with captures: replays them through the route programmer and one of the two paths
// onto the simulated chip, and checks what the chip forwards in the end.
#pragma once

#include "agent/run/RunOptions.h"

namespace Agent {

// Replays the captures in options.files one after another. Returns the exit code.
int runCaptures(RunOptions const& options);

}  // namespace Agent
