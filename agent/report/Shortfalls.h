// The shortfalls of a run: lines that were left out, and a table in which nothing fits. A shortfall is
// a failure only if the user asks for that (--strict).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/switch/Switch.h"

namespace Agent {

// A text for each shortfall: "2 bad lines were left out", "none of 5 routes is in hardware".
std::vector<std::string> shortfalls(std::uint64_t badLines, Switch const& theSwitch);

// With `strict`, prints the shortfalls as errors. Returns whether the run may succeed: not with
// `strict` and a shortfall.
bool passesStrict(bool strict, std::vector<std::string> const& found);

}  // namespace Agent
