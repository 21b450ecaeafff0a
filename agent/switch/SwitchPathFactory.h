// Makes the switch path of either kind.
#pragma once

#include <memory>

#include "agent/switch/PathKind.h"
#include "agent/switch/SwitchPath.h"

namespace Agent {

// With `crashed` the path is that of an agent that starts again: it has these VRFs and faults, and
// its programmer takes over the groups and entries on the chip.
std::unique_ptr<SwitchPath> newSwitchPath(PathKind path, Surroundings const& surroundings,
                                          PathConfig const& config,
                                          Crashed const* crashed = nullptr);

}  // namespace Agent
