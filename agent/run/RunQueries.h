// The queries of a run that has been stopped for them: a question about a route, or commands.
#pragma once

#include "agent/run/RunOptions.h"

namespace Agent {

// Answers options.question, or runs the commands of the options.
InspectResult query(InspectedRun& run, RunOptions const& options);

}  // namespace Agent
