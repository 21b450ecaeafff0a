// Reads commands from the options, and then from a terminal, with line editing, history and
// completion, or from a pipe.
#pragma once

#include <string>
#include <vector>

#include "agent/inspect/InspectedRun.h"
#include "agent/report/OutputFormat.h"

namespace Agent {

struct InspectOptions {
   std::vector<std::string> evals;  // the first commands
   bool inspect = false;            // then the commands of standard input
   OutputFormat format;
};

struct InspectResult {
   // False if a command of the options or of a pipe failed, or if standard output could not be
   // written.
   bool good = true;
   // `set` or `call` has changed the switch. The normal destruction of the switch may then fail an
   // assertion.
   bool changedByHand = false;
   bool interrupted = false;  // a signal has ended the commands
};

// Runs all commands, one after the other. A failed command does not stop the next ones. INT, TERM
// and HUP (agent/process/Signals.h) end the commands, and "interrupted" is printed. But at a
// terminal INT ends the command under way alone, or cancels the line.
InspectResult inspect(InspectedRun& run, InspectOptions const& options);
// Returns the exit code. If the switch was changed by hand, ends the process instead of returning,
// so that the switch is not destroyed.
int exitAfter(InspectResult const& result, int code);

}  // namespace Agent
