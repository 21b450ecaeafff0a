// Where commands come from: a terminal, with line editing, history and completion, or a pipe.
#pragma once

#include <string>
#include <vector>

#include "agent/inspect/InspectedRun.h"

namespace Agent {

struct InspectOptions {
   std::vector<std::string> evals;  // commands that are done first
   bool inspect = false;            // then those of standard input
   bool json = false;
};

struct InspectResult {
   // False when a command has failed that nobody has typed at a terminal, or when standard output
   // could not be written.
   bool good = true;
   // `set` or `call` has changed the switch: what is left need not bear being taken down as usual.
   bool changedByHand = false;
};

// Does all commands, one after the other, whatever becomes of those before.
InspectResult inspect(InspectedRun& run, InspectOptions const& options);
// The exit code. Does not return where the switch cannot be taken down.
int exitAfter(InspectResult const& result, int code);

}  // namespace Agent
