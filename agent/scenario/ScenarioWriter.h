// Writes events as the lines of a scenario, which ScenarioParser reads back as they were.
#pragma once

#include <string>

#include "agent/scenario/Scenario.h"

namespace Agent {

// One line, without its end. Of what a scenario expects, only `check`, `forward`, and the numbers
// of states are written; times, to the microsecond.
std::string scenarioLine(Scenario::Line const& line);
// The first line, for a scenario that is for one path alone.
std::string scenarioLine(Scenario::Settings const& settings, Path path);

}  // namespace Agent
