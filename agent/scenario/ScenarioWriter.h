// Writes events as lines of a scenario. ScenarioParser parses the lines back to equal events.
#pragma once

#include <string>

#include "agent/scenario/Scenario.h"

namespace Agent {

// One line, without its end. Times are rounded to microseconds. Of expectations, only `check`,
// `forward` and the numbers of states are written.
std::string scenarioLine(Scenario::Line const& line);
// The first line of a scenario that one path alone plays.
std::string scenarioLine(Scenario::Settings const& settings, PathKind path);

}  // namespace Agent
