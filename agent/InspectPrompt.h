// Where commands come from: a terminal, with line editing, history and completion, or a pipe.
#pragma once

#include <string>
#include <vector>

#include "agent/InspectedRun.h"

namespace Agent {

struct InspectOptions {
   std::vector<std::string> evals;  // commands that are done first
   bool inspect = false;            // then those of standard input
   bool json = false;
};

// Does all commands. False when one has failed that nobody has typed at a terminal, or when
// standard output cannot be written. Where `set` or `call` has changed the switch this ends the
// process at once, with the exit code that follows from it and from `failedBefore`: what is left
// cannot be taken down as usual.
bool inspect(InspectedRun& run, InspectOptions const& options, bool failedBefore = false);

}  // namespace Agent
