// The text of the option --chip.
#pragma once

#include <optional>
#include <string>

#include "platform/sim/Chip.h"

namespace Agent {

// Parses "groups=N,routes=N,boundaries=N,latency=S" (any of them, in any order) into `config`.
// Returns the fault of the text, or nothing.
std::optional<std::string> parseChipOption(std::string const& text, Sim::ChipConfig& config);

}  // namespace Agent
