// The report of a run on standard output.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "agent/report/Views.h"

namespace Agent {

// Prints the tables in `show` and the summary, as text, or all of it as one JSON object.
void printRunReport(std::vector<View> const& show, bool json, Switch const& theSwitch,
                    nlohmann::ordered_json summary);

}  // namespace Agent
