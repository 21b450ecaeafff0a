// `velmroute run` with captures. The captures are replayed through the route programmer and one of
// the two paths onto the simulated chip, and the forwarding of the chip is checked at the end.
#pragma once

#include "agent/run/RunOptions.h"

namespace Agent {

// Replays the captures in options.files one after another. Returns the exit code.
int runCaptures(RunOptions const& options);

}  // namespace Agent
