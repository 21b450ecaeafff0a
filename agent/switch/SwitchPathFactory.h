// Makes the switch path that the hooks of the platform belong to.
#pragma once

#include <memory>

#include "agent/switch/SwitchPath.h"

namespace Agent {

// With `crashed` the path is that of an agent that starts again: it has these VRFs, and its
// programmer takes over the groups and entries on the chip.
std::unique_ptr<SwitchPath> newSwitchPath(Surroundings const& surroundings,
                                          Crashed const* crashed = nullptr);

}  // namespace Agent
