// `velmroute run FILE...`: replays captures of multicast routes, or plays a scenario, on a
// simulated switch in virtual time.
#pragma once

#include "agent/run/RunOptions.h"

namespace Agent {

// Replays captures, or plays one scenario, which is recognised by its content. Results are printed
// to standard output and all other text to standard error. If standard error is a terminal, a
// progress line is printed there. INT, TERM and HUP end the input, as the end of the file does, and
// the results say "interrupted". Returns the exit code.
int runFiles(RunOptions const& options);

}  // namespace Agent
