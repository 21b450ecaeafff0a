// The report of a live agent (docs/report.md).
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "agent/live/LiveAgent.h"
#include "agent/page/Recorder.h"

namespace Agent {

// The document of the page: the routes of the switch, and the routes of the kernel that stay with the
// CPU or wait for the switch. `recorder` may be null. The tables are as of the latest reading.
nlohmann::ordered_json liveReport(LiveAgent const& agent, Recorder const* recorder);

}  // namespace Agent
