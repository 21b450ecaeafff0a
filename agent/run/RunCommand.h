// `velmroute run FILE...`: replays captures of multicast routes, or plays a scenario, on a simulated
// switch in virtual time.
#pragma once

#include "agent/run/RunOptions.h"

namespace Agent {

// Replays captures, or plays a scenario, which is told from its content and stands alone. Results
// go to standard output, all else to standard error; a progress line is shown while standard error
// is a terminal. An interrupt (SIGINT) ends the input, as end of file does. Returns the exit code.
int runFiles(RunOptions const& options);

}  // namespace Agent
