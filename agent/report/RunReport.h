// The report of a run.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "agent/report/OutputFormat.h"
#include "agent/report/View.h"

namespace Agent {

// Prints the tables in `show` and the summary, as text, or all of it as one JSON object.
void printRunReport(std::vector<ViewRequest> const& show, OutputFormat format,
                    Switch const& theSwitch, nlohmann::ordered_json summary);

// Prints the faults of the platform's hooks to standard error. Returns true if there are none, or the
// hooks are not checked.
bool printHookFaults(Switch const& theSwitch);

}  // namespace Agent
